# The USB/IP listener on IPv6: [::1] alone, then [::] for both families.
port=$(gadget_port disk0)

# ipv6_share ADDRESS: list, import, read back, show and drop over ADDRESS.
ipv6_share() {
  local address=$1
  timeout 20 usbip --tcp-port "$SHARE_PORT" list -r "$address" | grep -q "^ *$port:" ||
    { echo "usbip list -r $address does not list $port"; return 1; }
  timeout 30 usbip --tcp-port "$SHARE_PORT" attach -r "$address" -b "$port" >/dev/null &&
    reads_back disk0 || return 1
  timeout 10 "$HALVOCTL" conn list | grep -q "^net	$address	" ||
    { echo "conn list:"; timeout 10 "$HALVOCTL" conn list; return 1; }
  timeout 10 "$HALVOCTL" dev list | grep -q "shared@$address" || { echo "dev list"; return 1; }
  timeout 10 "$HALVOCTL" conn drop "$address" >/dev/null && share_ended disk0
}

for listen in "[::1]" "[::]"; do
  halvod_config "default = share"
  sed -i "s/^share-listen = .*/share-listen = $listen:$SHARE_PORT/" "$VM_TMP/halvod.conf"
  check "halvod shares on $listen:$SHARE_PORT" halvod_start
  check "list, import, show and drop over ::1 ($listen)" ipv6_share ::1
  if [ "$listen" = "[::]" ]; then
    check "list, import, show and drop over 127.0.0.1 ($listen)" ipv6_share 127.0.0.1
  fi
  halvod_stop >/dev/null
done
