# Hot-plug while shared: pulling the disk out ends its share and says so;
# plugged back, it is listed again with its own drivers. Also measures how
# long a plug takes to reach `halvoctl monitor` (real uevents, dummy_hcd's
# enumeration included).
port=$(gadget_port disk0)
check "halvod starts" halvod_start
timeout 300 stdbuf -oL "$HALVOCTL" monitor >"$VM_TMP/monitor.log" 2>&1 &
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
# The kernel keeps the slot of a busid whose device went away while bound
# to usbip-host (only rebind frees it, and rebind needs the device), so the
# device plugged in there again is taken by usbip-host.
known_failure "usbip-host takes a device plugged in where a shared one was pulled out" \
  "the plugged disk is back with usb and usb-storage" wait_for 60 bound_back "$port"
check "the plugged disk is listed again" lists_port "$port"
kill "$monitor" 2>/dev/null
