# A device this machine imports (on vhci_hcd) is neither listed nor offered
# again, even by a rule that shares everything; an import of it is refused
# and halvod stays responsive.
port=$(gadget_port disk0)
check "halvod starts with the default share" halvod_start
check "disk0 is imported" share_and_read disk0
imported=$(for folder in "$SYSFS"/*; do
  [ "$(cat "$folder/serial" 2>/dev/null)" = disk0 ] && case "$(readlink -f "$folder")" in */vhci_hcd*) basename "$folder" ;; esac
done)
say "    (imported as port ${imported:-none})"
check "usbip list -r does not offer the imported disk" \
  sh -c "! timeout 20 usbip --tcp-port $SHARE_PORT list -r 127.0.0.1 | grep -q '^ *${imported:-none}:'"
check "dev list shows the disk once" \
  sh -c "test \"\$(timeout 10 $HALVOCTL dev list | grep -c 'Halvo test disk')\" = 1"
check "an import of the imported disk is refused" sh -c "! timeout 30 usbip --tcp-port $SHARE_PORT attach -r 127.0.0.1 -b ${imported:-none}"
check "halvoctl still gets answers" sh -c "timeout 10 $HALVOCTL dev list >/dev/null"
check "SIGTERM stops halvod within 15 s" halvod_stop TERM
check "after SIGTERM the disk is back" share_ended disk0
