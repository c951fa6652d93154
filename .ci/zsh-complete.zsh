# Prints, one per line, what zsh's completion offers for a varn command line, as an interactive
# shell would after a Tab: the completion functions of DIR are loaded with compinit, WORDS are
# typed after "varn " in a pseudo-terminal, and every candidate that reaches compadd is printed.
#
#   zsh -f .ci/zsh-complete.zsh DIR WORDS
zmodload zsh/zpty || exit 2
[[ $# -eq 2 ]] || { print -u2 "usage: zsh -f $0 DIR WORDS"; exit 2 }
dir=$1 words=$2
zpty probe zsh -f -i || exit 2

# Sends a line and waits until the shell has run it; what the terminal showed is left in $shown.
run() {
  local line
  shown=
  zpty -w probe "$1; print DONE-''$2" || exit 2
  while zpty -r probe line; do
    shown+=$line
    [[ $shown == *DONE-$2* ]] && return 0
  done
  exit 2
}

run "PS1= PS2=; fpath=(${(q)dir} \$fpath); autoload -U compinit; compinit -u -D" 1
# compadd is wrapped to print each candidate it adds (calls that only fill arrays pass through).
run 'compadd() { if [[ ${@[1,(i)(-|--)]} == *-(O|A|D)\ * ]]; then builtin compadd "$@"; return; fi; local -a hits; builtin compadd -A hits "$@"; print -rl -- "<candidate>"${^hits}; builtin compadd "$@"; }' 2
run "bindkey '^I' complete-word" 3
zpty -n -w probe "varn $words"$'\t\C-a\C-k'
run ":" 4
zpty -d probe
print -r -- ${shown//$'\r'/} | sed -n 's/^.*<candidate>//p' | sort -u
