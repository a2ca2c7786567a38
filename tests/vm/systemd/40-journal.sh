# halvod's records in journalctl -u halvod -o json, with their HALVO_* fields.
port=$(gadget_port disk0)
check "the journal has halvod's start with HALVO_CONFIG" \
  journal_has "starting, version" HALVO_CONFIG=/etc/halvo/halvod.conf
check "the journal has the commit with HALVO_UID" journal_has "rules committed" HALVO_UID=0
check "the journal has the refusal with HALVO_UID" journal_has "refused to" HALVO_UID=65534
check "the journal has the share's start with HALVO_DEVICE" journal_has "share started" "HALVO_DEVICE=$port"
check "the journal has the share's end with HALVO_DEVICE" journal_has "share ended" "HALVO_DEVICE=$port"
