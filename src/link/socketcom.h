#pragma once

#include <QObject>
#include <QString>
#include <sys/un.h>

/// Client end of the local stream socket "/usr/mysocket" to the DAB receiver program. It connects once, in
/// its constructor; a failed object is replaced, not reused. Main thread only; send and read block. Errors go
/// to standard error only.
class socketcom : public QObject
{
    Q_OBJECT
public:
    socketcom();
    ~socketcom() override;

    void connectSocket();
    /// One `send`, its result unchanged.
    int send(const char* buffer, int length);
    /// One `read`, its result unchanged: 0 when the peer has closed.
    int read(char* buffer, int length);
    /// Result of the last connect: 0 connected, -1 failed.
    int get_state();

private:
    sockaddr_un m_addr;
    QString m_path;
    QString m_label; ///< never read: part of the record all the same
    int m_fd;
    int m_state;
};
