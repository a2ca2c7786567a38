# A share through halvod, from the list to its end, once per way it ends.
port=$(gadget_port disk0)

check "halvod starts with the default share" halvod_start
check "usbip list -r lists the shared disk" lists_port "$port"
check "usbip attach imports the disk and it reads back" share_and_read disk0
check "conn list shows the importing host" sh -c "$HALVOCTL conn list | grep -q '^net	127.0.0.1	'"
check "dev list shows the disk shared" sh -c "$HALVOCTL dev list | grep -q '	$port	.*shared@127.0.0.1'"
check "usbip-host has the disk in use" test "$(cat "$SYSFS/$port/usbip_status" 2>/dev/null)" = 2
check "a second import is refused as busy" second_import_refused "$port"
check "conn drop ends the share" sh -c "$HALVOCTL conn drop 127.0.0.1 >/dev/null"
check "after conn drop the disk is back with usb and usb-storage" share_ended disk0

share_started >/dev/null
check "the client's usbip detach ends the share" detach_all
check "after usbip detach the disk is back" share_ended disk0

share_started >/dev/null
check "dev unplug ends the share" sh -c "$HALVOCTL dev unplug $(device_id "$port") >/dev/null"
check "after dev unplug the disk is back" share_ended disk0

share_started >/dev/null
check "dev block commits a blocking rule" sh -c "$HALVOCTL dev block $(device_id "$port") >/dev/null"
check "after the blocking commit the disk is back" share_ended disk0
check "a blocked disk is not listed" sh -c "! usbip --tcp-port $SHARE_PORT list -r 127.0.0.1 | grep -q ' $port:'"
halvod_stop
: >"$VM_TMP/halvod.rules"

check "halvod starts again with no rules" halvod_start
check "the disk is shared before the reload" share_started
halvod_config "default = block"
kill -HUP "$HALVOD_PID"
sleep 1
check "halvod runs on after a reload with a share" halvod_runs
check "a reload to default = block ends the share" share_ended disk0
detach_all
halvod_config "default = share"
kill -HUP "$HALVOD_PID"
wait_for 20 bound_back "$port" >/dev/null

share_started >/dev/null
check "SIGTERM stops halvod within 15 s" halvod_stop TERM
check "after SIGTERM the disk is back" share_ended disk0

check "halvod starts again" halvod_start
check "the disk is shared before SIGKILL" share_started
halvod_stop KILL
check "after SIGKILL usbip-host keeps the disk" test "$(driver_of "$port")" = usbip-host
detach_all
check "halvod restarts after SIGKILL" halvod_start
check "the restart gives the disk back" share_ended disk0
check "the restart logs the disk given back" halvod_log_has "$port"
halvod_stop >/dev/null

usbip bind -b "$port" >/dev/null 2>&1
check "usbip bind by hand leaves the disk with usbip-host" test "$(driver_of "$port")" = usbip-host
halvod_start >/dev/null
check "halvod's start gives a disk bound by hand back" wait_for 30 bound_back "$port"
