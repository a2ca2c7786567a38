# zsh -f check_zsh_completion.zsh COMPLETIONS_DIR
# Loads the completions (_halvoctl, _halvod, _halvo-rulecheck) into an
# interactive zsh on a pseudo-terminal, with a stand-in halvoctl on PATH,
# presses Tab after each command line and checks the matches added: the inner
# shell's compadd also writes them to a capture file, and a post-completion
# hook then writes a marker there.
emulate -R zsh
setopt extended_glob

zmodload zsh/zpty 2>/dev/null || { print "SKIPPED: zsh has no zpty module"; exit 77 }

completions=${1:A}
here=${0:A:h}
work=$(mktemp -d)
trap 'zpty -d inner 2>/dev/null; rm -rf $work' EXIT
mkdir $work/bin $work/files
cp $here/fake_halvoctl $work/bin/halvoctl
touch $work/files/rules.txt $work/files/readme $work/notes
capture=$work/capture
output=$work/output
: >$capture

cat >$work/setup.zsh <<SETUP
PS1='' PROMPT='' RPROMPT=''
PATH=$work/bin:\$PATH
cd $work/files
fpath=($completions \$fpath)
autoload -Uz compinit && compinit -u -D
setopt no_auto_list no_list_ambiguous no_beep no_auto_menu
unset zle_bracketed_paste
compadd() {
  if (( \$@[(I)-[OAD]] )); then
    builtin compadd "\$@"
    return
  fi
  local -a halvo_matches
  builtin compadd -O halvo_matches "\$@"
  (( \$#halvo_matches )) && print -rl -- \$halvo_matches >>$capture
  builtin compadd "\$@"
}
_halvo_finished() { print -r -- '--finished--' >>$capture }
_halvo_complete() {
  comppostfuncs=(_halvo_finished)
  _main_complete
}
zle -C halvo-complete complete-word _halvo_complete
bindkey '^I' halvo-complete
bindkey '^U' kill-whole-line
print -r -- '--finished--' >>$capture
SETUP

# Reads the inner shell's terminal, so that it never blocks.
drain() {
  local chunk
  while zpty -rt inner chunk 2>/dev/null; do
    print -rn -- $chunk >>$output
  done
}

# Waits until the capture file ends with the marker; fails after 10 s.
await_marker() {
  repeat 200; do
    drain
    [[ -s $capture && $(tail -n 1 $capture) == --finished-- ]] && return 0
    sleep 0.05
  done
  return 1
}

zpty inner 'zsh -f -i'
zpty -w inner "source $work/setup.zsh"
await_marker || { print "FAIL: the inner zsh did not start"; cat $output; exit 1 }

integer checks=0 failures=0

# expect LINE EXPECTED: types LINE and Tab; compares the sorted matches.
expect() {
  local line=$1 expected=$2 actual
  : >$capture >$output
  zpty -w -n inner "$line"$'\t'
  if await_marker; then
    actual=${(j: :)${(ou)${(f)"$(grep -v -x -e --finished-- $capture)"}}}
  else
    actual='(the completion did not finish)'
  fi
  zpty -w -n inner $'\C-u'
  (( checks++ ))
  if [[ $actual != $expected ]]; then
    print -r "FAIL: \"$line\": expected [$expected], got [$actual]"
    (( failures++ ))
  fi
}

expect 'halvoctl ' 'conn dev monitor rule'
expect 'halvoctl -' '--help -h'
expect 'halvoctl dev ' 'block list share unplug'
expect 'halvoctl conn ' 'drop kill list'
expect 'halvoctl rule ' 'edit list load test'
expect 'halvoctl monitor ' ''

expect 'halvoctl dev share ' '12 3'
expect 'halvoctl dev unplug 1' '12'
expect 'halvoctl dev list ' ''
expect 'halvoctl dev block 3 ' ''

expect 'halvoctl conn drop ' '10.0.0.7 lab-mac.local'
expect 'halvoctl conn drop -' '-p'
expect 'halvoctl conn drop -p ' '32999 51000'
expect 'halvoctl conn kill ' '4242'

expect 'halvoctl rule list -' '-N'
expect 'halvoctl rule test -' '-f -h -r'
expect 'halvoctl rule test -r ' '12 3'
expect 'halvoctl rule test -r 3 -' ''

expect 'halvoctl rule load r' 'readme rules.txt'
expect 'halvoctl rule test -f ru' 'rules.txt'

# Without a daemon: nothing offered, and halvoctl's complaint hidden.
touch $work/bin/no-daemon
expect 'halvoctl dev share ' ''
(( checks++ ))
grep -q 'connection cannot be established' $output &&
  { print -r "FAIL: halvoctl's complaint reached the terminal"; (( failures++ )) }
expect 'halvoctl conn kill ' ''
rm $work/bin/no-daemon

expect 'halvod --max-c' '--max-clients --max-clients-per-user'
expect 'halvod --default=' 'block share'
expect 'halvod --rules=r' 'readme rules.txt'
expect "halvod --sysfs $work/" 'bin files'
expect 'halvod --admin-group roo' 'root'
expect 'halvod --sysfs /sys --d' '--default'

expect 'halvo-rulecheck --s' '--strict'
expect 'halvo-rulecheck --strict r' 'readme rules.txt'
expect 'halvo-rulecheck -- --' ''

print -r "$(( checks - failures )) passed, $failures failed"
(( failures == 0 ))
