# Shared by the scripts of this folder: where the tree is, root, messages, building. Sourced, never run.
# shellcheck shell=bash

# Physical path of the tree, whatever the caller's directory and however the script was named.
TREE="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)"
# shellcheck disable=SC2034  # used by the scripts that source this file
STREAMS="$TREE/build/streams"

PATH=$PATH:/usr/sbin:/sbin # which a user's own has not

say() { printf '%s\n' "== $*"; }

# fail CAUSE [REMEDY]: ends the script with status 1.
fail()
{
    printf '%s: %s\n' "$(basename "$0")" "$1" >&2
    [ $# -lt 2 ] || printf '    %s\n' "$2" >&2
    exit 1
}

# True when as_root can work without asking for a password.
can_be_root()
{
    [ "$(id -u)" -eq 0 ] || { command -v sudo >/dev/null && sudo -n true 2>/dev/null; }
}

# Words that run a command as root: none for root itself, else sudo with the environment kept (sanitizer options, CI) and
# root's home, so that nothing of root's is left in the caller's.
# "${ROOT[@]}" COMMAND & leaves the command's own process in $!, which a function would not.
ROOT=()
[ "$(id -u)" -eq 0 ] || ROOT=(sudo -n -E -H --)
as_root() { "${ROOT[@]}" "$@"; }

# Words that run a command as root of a user namespace, for a user who can not be root: everything in it that belongs to
# the user and their subordinate IDs is root's and other users' (user_namespaces(7)).
USER_ROOT=(unshare --user --map-root-user --map-auto --)

# Fails, with cause and remedy, unless this user can have that. OTHERWISE: one more remedy, a script's own.
check_user_root()
{
    local user file said also="; or run it as root, or allow this user to run sudo without a password${OTHERWISE:+; or $OTHERWISE}"
    user=$(id -un)
    { command -v newuidmap && command -v mmdebstrap; } >/dev/null \
        || fail "without root this needs newuidmap and mmdebstrap" "apt-get install uidmap mmdebstrap$also"
    for file in /etc/subuid /etc/subgid; do
        awk -F : -v user="$user" -v id="$(id -u)" '($1 == user || $1 == id) && $3 >= 65536 { found = 1 } END { exit !found }' $file \
            || fail "without root, $user needs 65536 subordinate IDs in $file" \
            "usermod --add-subuids FIRST-LAST --add-subgids FIRST-LAST $user, with a range that is nobody's yet$also"
    done
    said=$("${USER_ROOT[@]}" true 2>&1) || fail "users can make no namespaces of their own here: $said" \
        "does the kernel let them (sysctl kernel.unprivileged_userns_clone, user.max_user_namespaces)?$also"
}

# with_root ARGUMENT...: for scripts that need root for the virtual instrument, with their arguments. Goes on where root can be
# had; otherwise runs the script in the user's own desk, where they are root, and ends with it.
with_root()
{
    ! can_be_root || return 0
    check_user_root
    say "without root: in a Debian of your own in which you are (script/clean-root run --desk). The kernel's own settings stay:" \
        "net.core.rmem_max is $(cat /proc/sys/net/core/rmem_max) (the instrument has 30000000), and nothing has a real-time priority"
    exec "$TREE/script/clean-root" run --desk -- "$TREE/script/$(basename "$0")" "$@"
}

# ensure_packages [GROUP...]: installs what is missing of the packages that building and running need, and of these
# groups of script/packages; says nothing when all are there.
ensure_packages()
{
    local group options=()
    for group in "$@"; do options+=(--with "$group"); done
    "$TREE/script/bootstrap" "${options[@]}" --check >/dev/null || "$TREE/script/bootstrap" "${options[@]}"
}

# wrap_preset PRESET: sets the array `wrap` to what must stand before a command of that build. ThreadSanitizer's shadow
# memory does not fit the widest address randomisation of current kernels, so its programs go without (test discovery
# runs them while building, too).
wrap_preset()
{
    wrap=()
    [ "$1" != tsan ] || wrap=(setarch "$(uname -m)" -R)
}

# build_preset PRESET [TARGET...]: configures and builds into build/PRESET. Configures each time (a fraction of a second):
# folders of the tree are built when they are there, and a new one does not show otherwise.
build_preset()
{
    local preset=$1 wrap said
    shift
    wrap_preset "$preset"
    if ! said=$(cd "$TREE" && "${wrap[@]}" cmake --preset "$preset" 2>&1); then
        printf '%s\n' "$said"
        return 1
    fi
    "${wrap[@]}" cmake --build "$TREE/build/$preset" -j "$(nproc)" ${1:+--target "$@"}
}

# Makes the demo streams once; a later call returns at once.
make_streams() { "$TREE/bench/streams/make-streams" "$STREAMS"; }
