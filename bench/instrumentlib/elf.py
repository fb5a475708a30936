"""What a program's ELF header tells: the architecture that it is for."""

import sysconfig

from .errors import BenchError

_MULTIARCH = {62: "x86_64-linux-gnu", 183: "aarch64-linux-gnu"}  # e_machine -> Debian's name of the library folder


def multiarch(path):
    """Name of the library folder that fits the program at `path`; this machine's own for what is no little-endian ELF file."""
    with open(path, "rb") as file:
        header = file.read(20)
    if header[:4] != b"\x7fELF" or header[5] != 1:
        return sysconfig.get_config_var("MULTIARCH")
    machine = int.from_bytes(header[18:20], "little")
    if machine not in _MULTIARCH:
        raise BenchError(f"{path} is for a machine that is not known here (ELF machine {machine})",
                         "the instrument's programs are built for amd64 and arm64")
    return _MULTIARCH[machine]
