#!/bin/sh
# check_zsh_completion.sh COMPLETIONS_DIR
# Runs the zsh completion check when zsh is installed.
command -v zsh >/dev/null 2>&1 ||
    { echo "SKIPPED: zsh not found (Debian package zsh)"; exit 77; }
exec zsh -f "$(dirname "$0")/check_zsh_completion.zsh" "$@"
