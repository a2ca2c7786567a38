# Hot-plug while shared: pulling the disk out ends its share and says so;
# plugged back, it is listed again with its own drivers. Also measures how
# long a plug takes to reach `halvoctl monitor` (real uevents, dummy_hcd's
# enumeration included).
port=$(gadget_port disk0)
check "halvod starts" halvod_start
# script: a terminal, so that the monitor writes each line as it comes.
timeout 300 script -qfec "$HALVOCTL monitor" "$VM_TMP/monitor.log" >/dev/null 2>&1 &
monitor=$!
check "disk0 is imported" share_and_read disk0
gadget_unplug disk0
check "pulling the disk out ends the share" wait_for 30 client_imports_nothing
check "monitor reports the disk unplugged" wait_for 10 grep -qw unplugged "$VM_TMP/monitor.log"
check "halvod logs no failure for the pulled disk" sh -c "! grep -i 'fail\|cannot' $VM_TMP/halvod.log"

# Plug to monitor line (polled every 100 ms).
plugged=$(date +%s%N)
gadget_plug disk0
check "monitor reports the disk plugged again" wait_for 60 grep -qw plugged "$VM_TMP/monitor.log"
say "    plug to monitor: $((($(date +%s%N) - plugged) / 1000000)) ms (TCG guest)"
check "the plugged disk is back with usb and usb-storage" wait_for 60 own_drivers "$port"
# The kernel keeps the busid of a device that went away while usbip-host
# held it: only rebind frees the slot, and rebind needs that very device.
KNOWN_FAILURE="the kernel keeps the busid of a disk pulled out while shared" \
  check "usbip-host's match table holds no entry for the pulled disk" match_table_clean "$port"
check "the plugged disk is listed again" lists_port "$port"
check "the plugged disk can be shared again" share_and_read disk0
kill "$monitor" 2>/dev/null
