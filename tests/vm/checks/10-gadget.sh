# The machine the other steps use: the kernel's USB/IP drivers and a
# mass-storage gadget "disk0" on dummy_hcd, driven by usb-storage.
check "usbip-host and vhci-hcd are loaded" test -d "$STUB" -a -d /sys/devices/platform/vhci_hcd.0
gadget_add disk0
check "gadget disk0 is a USB disk on dummy_hcd" wait_for 60 gadget_ready disk0
check "gadget disk0 has its marker on /dev/sdX" wait_for 30 disk_of disk0 local
