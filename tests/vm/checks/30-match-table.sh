# usbip-host's match table has 16 slots and a busid keeps its slot until it
# is given back through rebind: 17 shares of 17 different ports (the disk
# moved across 17 dummy buses) must all import and end, and none may leave
# its port in the table. The imports are bare ones (no vhci-hcd), so that no
# enumeration or SCSI scan slows the 17 rounds down; 20-share covers the real
# client.
check "halvod starts" halvod_start
share_once() {
  raw_import "$1" >/dev/null || failures+=" $1:no-import"
  wait_for 30 driver_is "$1" usb >/dev/null || failures+=" $1:not-back"
}
across_ports 17 share_once
check "17 shares of 17 ports all import and end" \
  sh -c "echo ports:$ports; test -z '$failures' || { echo failed:$failures; exit 1; }"
check "usbip-host's match table holds none of them" match_table_clean $ports
check "halvod logs no match_busid failure" sh -c "! grep match_busid $VM_TMP/halvod.log"
