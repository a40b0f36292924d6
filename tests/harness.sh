# Sourced by the shell tests: a scratch directory to work in, checks that are counted, and the programs that results are
# compared with. A test ends with `finish`.
unset PICTRA_CFGFILE
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
failures=0

fail() {
    echo "FAILED: $*"
    failures=$((failures + 1))
}

# expect CODE TEXT COMMAND...: the exit code, and a text among what the command says; stdin is passed on.
expect() {
    local code=$1 text=$2 said got
    shift 2
    said=$("$@" 2>&1 >output)
    got=$?
    said+=$(tr -d '\0' <output | tr -s ' ')
    [ "$got" = "$code" ] || fail "exit $got instead of $code: $*: $said"
    [[ $said == *"$text"* ]] || fail "no '$text' from $*: $said"
}

same() { cmp -s "$1" "$2" || fail "$1 and $2 differ"; }

# need NAME PATTERN ARGUMENT...: prints the path of the program. The first file of that name on the PATH may be another
# program, so each is asked with the arguments, and the first whose answer matches is taken. Without one the test is
# skipped, which ctest knows by the exit code.
need() {
    local name=$1 pattern=$2 path
    shift 2
    while read -r path; do
        [[ $(timeout 20 "$path" "$@" 2>&1 </dev/null) =~ $pattern ]] || continue
        echo "$path"
        return
    done < <(type -ap "$name")
    echo "Skipped: no $name on the PATH answers '$*' with '$pattern'; .ci/packages check installs it." >&2
    return 1
}
skipped=77
# need_python3 MODULE: python3 with a module of its library, of which systems may install a part.
need_python3() { need python3 '^Python 3\.' -c "import platform, $1; print('Python', platform.python_version())"; }

finish() {
    [ "$failures" = 0 ] && echo 'all passed'
    exit $((failures > 0))
}
