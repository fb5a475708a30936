#include "filesystem.h"

#include <exception>
#include <iostream>

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr
            << "usage: tessary-fpga MOUNTPOINT NOTESFOLDER\n"
               "Shows an FPGA as files below MOUNTPOINT until it gets SIGTERM: gpio/ (for /sys/class/gpio),\n"
               "spidev0.0, xillybus_write_8 (for /dev), pci/ (for /sys/bus/pci), and knobs, which takes "
               "faults.\n"
               "NOTESFOLDER gets fpga.log (what happened), bitstream.bin and export.bin (what went in).\n";
        return 2;
    }
    try {
        Device device(argv[2]);
        return serveFiles(device, argv[0], argv[1]);
    } catch (const std::exception& error) {
        std::cerr << "tessary-fpga: " << error.what() << "\n";
        return 1;
    }
}
