# What shuts a test program off from the machine, inside mount namespaces that the caller has made. Sourced, never run.
# shellcheck shell=bash

# make_read_only PATTERN...: every mounted file system becomes read-only for this namespace, but those whose mount point
# matches a pattern. Ends the program when / stays writable.
make_read_only()
{
    local path pattern
    while read -r _ _ _ _ path _; do # the paths stand in column 5, blanks as \040
        path=$(printf '%b' "$path")
        for pattern in "$@"; do
            # shellcheck disable=SC2053  # a pattern is meant
            [[ $path != $pattern ]] || continue 2
        done
        mount -o remount,bind,ro "$path" 2>/dev/null || true # covered by another mount, or gone with it
    done < /proc/self/mountinfo
    case $(findmnt -n -o OPTIONS --target /etc) in ro*) ;; *) echo "contain: / stays writable" >&2; exit 1 ;; esac
}

# The few devices that any program needs stand in /dev, and no others; more can be added to it.
make_devices()
{
    local staged=/tmp/devices name
    mkdir "$staged"
    mount -t tmpfs -o mode=755,size=1m tmpfs "$staged"
    for name in null zero full random urandom; do
        : > "$staged/$name"
        mount --bind "/dev/$name" "$staged/$name"
    done
    ln -s /proc/self/fd "$staged/fd"
    mount --rbind "$staged" /dev
    umount -l "$staged"
    rmdir "$staged"
}
