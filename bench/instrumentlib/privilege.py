"""What root is here: this machine's, or a user's own in a user namespace, who has all rights over what belongs to that alone."""


def is_users_own():
    """True in a user namespace (user_namespaces(7)): no device nodes, none of the settings that belong to the whole kernel, and
    no real-time priorities."""
    with open("/proc/self/uid_map", encoding="ascii") as file:
        return file.read().split() != ["0", "0", "4294967295"]
