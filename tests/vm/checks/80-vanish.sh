# A host that vanishes while it imports: the client runs in a network
# namespace of its own behind a veth pair, imports disk0, and then its end of
# the link goes down, so that neither a FIN nor a reset ever reaches halvod.
# Only TCP keepalive and TCP_USER_TIMEOUT on the shared connection can end
# the share; it must end within halvod's dead-peer time plus a margin, once
# in clear and once over TLS.
port=$(gadget_port disk0)
VANISH_NS=halvo-far
VANISH_NEAR=10.203.0.1
VANISH_FAR=10.203.0.2
VANISH_DEAD=6
# The kernel's reset of the device and halvod's poll of it, on a slow,
# emulated machine.
VANISH_MARGIN=12

vanish_link_up() {
  ip netns del "$VANISH_NS" 2>/dev/null
  ip link del vanish0 2>/dev/null
  ip netns add "$VANISH_NS" &&
    ip link add vanish0 type veth peer name vanish1 netns "$VANISH_NS" &&
    ip addr add "$VANISH_NEAR/24" dev vanish0 && ip link set vanish0 up &&
    ip -n "$VANISH_NS" addr add "$VANISH_FAR/24" dev vanish1 &&
    ip -n "$VANISH_NS" link set vanish1 up && ip -n "$VANISH_NS" link set lo up
}

# halvod listening on the near end, in clear and over TLS, giving up on a
# silent peer after VANISH_DEAD seconds. The far host's certificate is
# far-host; halvod's own names the near address, which halvo-attach checks.
vanish_halvod() {
  { [ -e "$PKI/halvo-vm.pem" ] || pki_make; } && pki_issue far-host &&
    pki_issue vanish-near "IP:$VANISH_NEAR" &&
    SHARE_ADDRESS=$VANISH_NEAR SERVER_NAME=vanish-near \
      halvod_start_tls "default = share" "share-dead-peer-seconds = $VANISH_DEAD"
}

# vanish_import clear|tls: the far host imports disk0 and the share shows.
vanish_import() {
  wait_for 60 gadget_ready disk0 >/dev/null || return 1
  if [ "$1" = tls ]; then
    ip netns exec "$VANISH_NS" timeout 60 "$HALVO_ATTACH" attach --tls --cert "$PKI/far-host.pem" \
      --key "$PKI/far-host.key" --ca "$PKI/ca.pem" "$VANISH_NEAR:$TLS_PORT" "$port"
  else
    ip netns exec "$VANISH_NS" timeout 30 usbip --tcp-port "$SHARE_PORT" attach -r "$VANISH_NEAR" -b "$port"
  fi || return 1
  wait_for 60 disk_of disk0 imported >/dev/null && in_use "$port" &&
    halvoctl conn list | grep -q "$VANISH_FAR\|far-host" || { echo "conn list:"; halvoctl conn list; return 1; }
}

vanish_share_gone() {
  ! halvoctl conn list | grep -q "$VANISH_FAR\|far-host" && ! in_use "$port" >/dev/null &&
    own_drivers "$port"
}

# vanish_cut clear|tls: cuts the far end and waits for the share to end;
# says when the kernel let the connection go and when the share had ended.
vanish_cut() {
  local start=$EPOCHREALTIME limit=$((VANISH_DEAD + VANISH_MARGIN)) dropped ended status=0
  ended=$(grep -c "share ended" "$VM_TMP/halvod.log")
  ip -n "$VANISH_NS" link set vanish1 down || return 1
  if wait_for "$limit" sh -c "! grep -qx 2 $SYSFS/$port/usbip_status" >/dev/null; then
    dropped="usbip-host let the connection go after $(vanish_since "$start") s"
    wait_for "$limit" vanish_share_gone || status=1
  else
    dropped="usbip-host still held the connection" status=1
  fi
  say "vanish, $1: $dropped, the share $([ $status -eq 0 ] && echo ended || echo "still ran")" \
    "after $(vanish_since "$start") s (dead-peer time $VANISH_DEAD s)"
  [ "$status" -eq 0 ] || { halvoctl conn list; return 1; }
  [ "$(grep -c "share ended" "$VM_TMP/halvod.log")" -gt "$ended" ] || { echo "no share ended in the log"; return 1; }
}

vanish_since() {
  awk -v a="$1" -v b="$EPOCHREALTIME" 'BEGIN { printf "%.1f", b - a }'
}

# The client's side still holds the dead import: detach it, and make the
# link anew for the next round.
vanish_reset() {
  detach_all
  wait_for 30 client_imports_nothing >/dev/null
  vanish_link_up >/dev/null
}

modprobe tls 2>/dev/null
check "a veth pair links a far namespace" vanish_link_up
check "halvod serves the near end in clear and over TLS" vanish_halvod
check "the far host imports disk0 in clear" vanish_import clear
check "in clear, the share of a vanished host ends within $VANISH_DEAD + $VANISH_MARGIN s" vanish_cut clear
vanish_reset
check "the far host imports disk0 over TLS" vanish_import tls
check "over TLS, the share of a vanished host ends within $VANISH_DEAD + $VANISH_MARGIN s" vanish_cut tls
detach_all
ip netns del "$VANISH_NS" 2>/dev/null
ip link del vanish0 2>/dev/null
