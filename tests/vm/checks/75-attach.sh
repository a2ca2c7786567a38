# halvo-attach on the real vhci-hcd: list, attach, status and detach on the
# plain port; then attach --persist, plain and over TLS, coming back after
# halvod restarts and after the disk is replugged, one log line per attempt,
# and detaching on SIGTERM.
port=$(gadget_port disk0)

# The vhci port that `halvo-attach status` shows for the disk from SERVER.
status_port() {
  "$HALVO_ATTACH" status | awk -v server="$1" -v busid="$port" \
    '$4 == server && $5 == busid { print $1; found = 1 } END { exit !found }'
}

attach_and_read() {
  timeout 60 "$HALVO_ATTACH" attach 127.0.0.1 "$port" && reads_back disk0
}

# attached_times LOG N: the persistent attachment logged N attachments.
attached_times() {
  [ "$(grep -c "^attached $port from" "$1")" -ge "$2" ] || { tail -3 "$1"; return 1; }
}

# Every attempt has its numbered line, without a gap, and ends in an
# attachment or in a failure that names the wait before the next.
one_line_per_attempt() {
  awk '/^attempt [0-9]+: attaching/ { if ($2 != ++n ":") gap = 1 }
    /^attached |^attempt [0-9]+ failed: .*; next in [0-9]+ s$/ { ++ended }
    END { exit gap || n < 3 || ended < n }' "$1" || { cat "$1"; return 1; }
}

# stopped_cleanly PID LOG: SIGTERM ends the persistent attachment with
# status 0 and the device detached.
stopped_cleanly() {
  local status
  kill -TERM "$1"
  wait_for 15 sh -c "! kill -0 $1 2>/dev/null" || return 1
  wait "$1"
  status=$?
  [ "$status" = 0 ] || { echo "exit status $status"; tail -3 "$2"; return 1; }
  grep -q "^detached $port from" "$2" || { tail -3 "$2"; return 1; }
  client_imports_nothing
}

pki_issue lab-a 2>/dev/null || { pki_make && pki_issue lab-a; }
: >"$VM_TMP/halvod.rules"
check "halvod starts with both ports" halvod_start_tls "default = share"
check "halvo-attach list shows the disk" sh -c "$HALVO_ATTACH list 127.0.0.1 | grep -q '^$port '"
check "halvo-attach attach imports the disk and it reads back" attach_and_read
check "halvo-attach status shows the attachment in clear" \
  sh -c "$HALVO_ATTACH status | grep -q ' 127.0.0.1:$SHARE_PORT .* $port .* plain '"
vhci_port=$(status_port "127.0.0.1:$SHARE_PORT")
check "halvo-attach detach frees its port" "$HALVO_ATTACH" detach "${vhci_port:-none}"
check "after halvo-attach detach the disk is back" share_ended disk0

for mode in plain tls; do
  log=$VM_TMP/persist-$mode.log
  if [ "$mode" = tls ]; then
    "$HALVO_ATTACH" attach --persist --tls --cert "$PKI/lab-a.pem" --key "$PKI/lab-a.key" \
      --ca "$PKI/ca.pem" "127.0.0.1:$TLS_PORT:$port" 2>"$log" &
  else
    "$HALVO_ATTACH" attach --persist "127.0.0.1:$SHARE_PORT:$port" 2>"$log" &
  fi
  persistent=$!
  check "attach --persist ($mode) attaches the disk" wait_for 60 attached_times "$log" 1
  check "the disk attached by --persist ($mode) reads" wait_for 60 disk_of disk0 imported
  halvod_stop >/dev/null
  check "halvod starts again" halvod_start_tls "default = share"
  check "--persist ($mode) attaches again after halvod restarts" wait_for 90 attached_times "$log" 2
  check "the disk reads again after halvod restarts ($mode)" wait_for 60 disk_of disk0 imported
  gadget_unplug disk0
  wait_for 30 client_imports_nothing >/dev/null
  gadget_plug disk0
  check "--persist ($mode) attaches again after the disk is replugged" \
    wait_for 120 attached_times "$log" 3
  check "the disk reads again after the replug ($mode)" wait_for 60 disk_of disk0 imported
  check "--persist ($mode) logs one line per attempt" one_line_per_attempt "$log"
  check "SIGTERM detaches and ends --persist ($mode) with status 0" stopped_cleanly "$persistent" "$log"
  check "after --persist ($mode) ends the disk is back" share_ended disk0
  sed 's/^/    /' "$log" >>"$results/log"
done
