#!/bin/bash
# A shell takes the completion that the program prints for it. Usage: completion.sh BUILD_DIRECTORY SHELL
set -u
build=$1 name=$2
. "${0%/*}/harness.sh"
shell=$(need "$name" "^$name[ ,].*[3-9]\." --version) || exit $skipped
export PATH=$build/bin:$PATH HOME=$work

pictra completion "$name" >script
expect 0 '' "$shell" -n script
case $name in
fish) expect 0 'convert' "$shell" -c 'source script; complete -C "pictra con"' ;;
zsh) # which loads it from a file of the command's name
    mkdir functions
    mv script functions/_pictra
    expect 0 'by _pictra' "$shell" -fc \
        'fpath+=functions; autoload -U compinit; compinit -u -D; echo "by ${_comps[pictra]}"'
    ;;
esac
finish
