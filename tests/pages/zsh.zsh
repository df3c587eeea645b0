# Completes command lines with the generated script, in a zsh on a terminal of its own.  zsh.zsh SCRIPT
zsh -n $1 || exit 1
zmodload zsh/zpty || { print "skipped: no terminal of its own"; exit 77 }
folder=$(mktemp -d)
print 'photos' > $folder/photo.jpg
zpty shell "cd $folder && TERM=dumb zsh -f -i"
# A word that is built from two is not found in the line that is echoed.
zpty -w shell "PS1=; fpath=(${1:A:h} \$fpath); autoload -Uz compinit; compinit -u -d $folder/dump; varobinary() { print -r -- \"<\$*>\" }; print rea''dy"
zpty -r shell answer '*ready*'
failed=0

# expect WANTED LINE: the only completion of the line's last word makes it WANTED.
expect() {
  zpty -n -w shell "varobinary $2"$'\t\n'
  zpty -r shell answer '*<*>*'
  if [[ $answer != *"<$1>"* && $answer != *"<$1 >"* ]]; then
    print -r -- "'$2' gives: $answer; expected: $1"
    failed=1
  fi
}

expect 'upload' 'upl'
expect 'blob path' 'blob pa'
expect 'completion fish' 'completion f'
expect 'upload --chunk-size' 'upload --chu'
expect 'upload --json' 'upload --js'
expect '--json blob delete --before-sync' '--json blob delete --bef'
expect '--policy compatible' '--policy com'
expect 'list --chu' 'list --chu'
expect 'upload URL photo.jpg' 'upload URL pho'
zpty -d shell
rm -r $folder
exit $failed
