# Shared by the scripts beside it.

say() { printf 'fragments: %s\n' "$*" >&2; }
fail() { say "$@"; exit 1; }

# install WHAT PACKAGE...: installs the Debian packages, as WHAT is missing; where that can't be
# done, one line tells the user what to do.
install() {
    local what=$1
    shift
    if [[ $EUID -ne 0 ]] || ! command -v apt-get >/dev/null; then
        fail "missing: $what. On Debian, as root: apt-get install $*"
    fi
    say "installing $*"
    local -x DEBIAN_FRONTEND=noninteractive
    # A new machine may have no lists of packages yet.
    { apt-get -qq update && apt-get -qq -y --no-install-recommends install "$@"; } >/dev/null 2>&1 ||
        fail "missing: $what, and 'apt-get install $*' failed"
}
