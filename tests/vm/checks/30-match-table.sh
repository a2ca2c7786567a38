# usbip-host's match table has 16 slots and a busid keeps its slot until it
# is given back through rebind: 17 shares of 17 different ports (the disk
# moved across 17 dummy buses) must all import and end, and none may leave
# its port in the table. The imports are bare ones (no vhci-hcd) and drivers
# are not probed on their own meanwhile, so that no enumeration or SCSI scan
# slows the 17 rounds down; 20-share covers the real client.
check "halvod starts" halvod_start
echo 0 >/sys/bus/usb/drivers_autoprobe
failures=
ports=
for udc in $(ls /sys/class/udc | sort -V | head -17); do
  gadget_move disk0 "$udc"
  if ! wait_for 30 gadget_port disk0 >/dev/null; then
    failures+=" $udc:not-plugged"
    continue
  fi
  port=$(gadget_port disk0)
  ports+=" $port"
  raw_import "$port" >/dev/null || failures+=" $port:no-import"
  wait_for 30 driver_is "$port" usb >/dev/null || failures+=" $port:not-back"
done
check "17 shares of 17 ports all import and end" \
  sh -c "echo ports:$ports; test -z '$failures' || { echo failed:$failures; exit 1; }"
check "usbip-host's match table holds none of them" match_table_clean $ports
check "halvod logs no match_busid failure" sh -c "! grep match_busid $VM_TMP/halvod.log"
echo 1 >/sys/bus/usb/drivers_autoprobe
gadget_move disk0 dummy_udc.0
wait_for 60 gadget_ready disk0 >/dev/null
