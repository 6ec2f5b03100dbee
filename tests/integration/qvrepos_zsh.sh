#!/usr/bin/env bash
# What the Tab key makes of a line in an interactive zsh with the installed completion.
set -euo pipefail
build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
export PATH=$build/bin:$PATH

# Ctrl-G notes the line down and begins the next one.
cat >.zshrc <<END
PS1=ready RPS1=
fpath=($build/share/zsh/vendor-completions \$fpath)
autoload -Uz compinit
compinit -u -D
note() { print -r -- "\$BUFFER" >>completed; BUFFER= }
zle -N note
bindkey -e
bindkey '^G' note
END
# Types each line, Tab and Ctrl-G, and at last Ctrl-D.
cat >type.zsh <<'END'
zmodload zsh/zpty
zpty terminal zsh -d -i
zpty -r terminal shown '*ready*'
for line; do zpty -w -n terminal $line$'\t\a'; done
zpty -w -n terminal $'\x04'
while zpty -r terminal shown; do :; done
END

typed=() completed=()
becomes() { typed+=("$1") completed+=("$2"); }
becomes 'qvrepos li' 'qvrepos lineage '
becomes 'qvrepos def' 'qvrepos definitions '
becomes 'qvrepos definitions del' 'qvrepos definitions delete '
becomes 'qvrepos he' 'qvrepos help '
becomes 'qvrepos help cache g' 'qvrepos help cache get '
becomes 'qvrepos --log-level de' 'qvrepos --log-level debug '
becomes 'qvrepos lineage --com' 'qvrepos lineage --compact '
becomes 'qvrepos --log' 'qvrepos --log-level '
becomes 'qvrepos definitions create Orders --type sy' 'qvrepos definitions create Orders --type system '
becomes 'qvrepos types ProcessJobS' 'qvrepos types ProcessJobState '
becomes 'qvrepos version --set BASE/REPOS_S' 'qvrepos version --set BASE/REPOS_SYS_PATH='
becomes 'qvrepos nonsense li' 'qvrepos nonsense li'
ZDOTDIR=$work TERM=dumb timeout 60 zsh -f type.zsh "${typed[@]}"
diff <(printf '%s\n' "${completed[@]}") completed
