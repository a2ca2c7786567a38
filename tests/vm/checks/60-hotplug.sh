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
check "halvod logs that the pulled disk went away" \
  wait_for 10 halvod_log_has "share ended: the device went away"
check "halvod logs no failure for the pulled disk" sh -c "! grep -i 'fail\|cannot' $VM_TMP/halvod.log"

# Plug to monitor line (polled every 100 ms).
plugged=$(date +%s%N)
gadget_plug disk0
check "monitor reports the disk plugged again" wait_for 60 grep -qw plugged "$VM_TMP/monitor.log"
say "    plug to monitor: $((($(date +%s%N) - plugged) / 1000000)) ms (TCG guest)"
# The kernel keeps the busid of a device that went away while usbip-host
# held it: only rebind frees the slot, and rebind needs a device there, so
# halvod frees it when the disk comes back.
check "usbip-host's match table holds no entry for the pulled disk" \
  wait_for 30 match_table_clean "$port"
check "the plugged disk is back with usb and usb-storage" wait_for 60 own_drivers "$port"
check "the plugged disk is listed again" lists_port "$port"
check "the plugged disk can be shared again" share_and_read disk0
kill "$monitor" 2>/dev/null

# Each pull-out while shared leaves its port's slot in usbip-host's table
# (16 slots) until a device comes on that port again: 17 rounds, each on a
# port of its own, each pulled out while shared (a bare import, as in
# 30-match-table) and plugged back, must all import and leave none of their
# ports in the table.
detach_all
share_ended disk0 >/dev/null
pull_out_while_shared() {
  if ! raw_import "$1" open >/dev/null; then
    exec 3<&- 2>/dev/null
    failures+=" $1:no-import"
    return
  fi
  gadget_unplug disk0
  wait_for 10 gadget_gone disk0 >/dev/null || failures+=" $1:not-pulled"
  exec 3<&-
  gadget_plug disk0
  wait_for 30 match_table_clean "$1" >/dev/null || failures+=" $1:still-in-table"
  wait_for 30 driver_is "$1" usb >/dev/null || failures+=" $1:not-back"
}
gone_before=$(grep -c "share ended: the device went away" "$VM_TMP/halvod.log")
started=$(date +%s)
across_ports 17 pull_out_while_shared
say "    17 rounds: $(($(date +%s) - started)) s (TCG guest)"
check "17 pull-outs while shared, on 17 ports, all import and end" \
  sh -c "echo ports:$ports; test -z '$failures' || { echo failed:$failures; exit 1; }"
check "usbip-host's match table holds none of them" match_table_clean $ports
gone=$(($(grep -c "share ended: the device went away" "$VM_TMP/halvod.log") - gone_before))
check "halvod logs each of them as gone, and no failure" \
  sh -c "test $gone -eq 17 || { echo '$gone pull-outs logged as gone'; exit 1; }
    ! grep -i 'fail\\|cannot' $VM_TMP/halvod.log"

# A run killed while sharing leaves the slot of a disk pulled out afterwards:
# the next run finds it in the table and frees it when the disk comes back.
port=$(gadget_port disk0)
raw_import "$port" open >/dev/null
halvod_stop KILL >/dev/null
gadget_unplug disk0
wait_for 10 gadget_gone disk0 >/dev/null
exec 3<&-
check "halvod starts after SIGKILL with the shared disk pulled out" halvod_start
gadget_plug disk0
check "the slot that the killed run left is freed when the disk comes back" \
  wait_for 30 match_table_clean "$port"
check "the disk is back with usb and usb-storage" wait_for 60 own_drivers "$port"
