#pragma once

/// The UART "/dev/ttymxc1" to the instrument's controller: 115200 baud, 8 data bits, no parity, one stop bit,
/// raw, never waiting. Main thread only. Errors of a read or write come back as the raw negative count; a
/// closed port reads and writes nothing.
class SerialPort
{
public:
    SerialPort();
    /// Closes the port if it is open.
    ~SerialPort();
    SerialPort(const SerialPort&) = delete;
    SerialPort& operator=(const SerialPort&) = delete;

    /// Opens and configures the device. Returns its descriptor, or -1 when it can not be opened; settings
    /// that can not be read or applied are logged and the port stays open.
    int SerialPortConnect();
    void SerialPortDisconnect();

    /// One `write`, its result unchanged (a short write is not retried); 0 when closed. `buffer` is only
    /// read.
    int SerialPortWrite(const char* buffer, int length);

    /// Received bytes that wait to be read; 0 when closed.
    int IsInputBytesPending();

    /// At most `length` bytes, without waiting: 0 when nothing is pending or the port is closed.
    int SerialPortRead(char* buffer, int length);

    /// Waits until all written bytes have left the UART.
    void DrainOutput();

private:
    int m_fd; ///< owned; -1 while closed
};

extern SerialPort uart;
