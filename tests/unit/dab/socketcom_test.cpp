// The client end of the local socket to the DAB receiver program.
#include "link/socketcom.h"
#include "receiver.h"
#include "support/privatemachine.h"
#include "support/testfiles.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <QMetaObject>
#include <unistd.h>

namespace {

class LocalSocket : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::string reason = privatemachine::enter();
        if (reason.empty())
            reason = coverSocketFolder();
        if (!reason.empty())
            GTEST_SKIP() << reason;
    }

    /// Made between two captures of standard error; its text is in `text`.
    std::unique_ptr<socketcom> connectNow()
    {
        testing::internal::CaptureStderr();
        auto link = std::make_unique<socketcom>();
        text = testing::internal::GetCapturedStderr();
        return link;
    }

    std::string text;
};

/// Sockets of this process that a program started by it would have as well.
int inheritableSockets()
{
    int count = 0;
    for (int fd = 3; fd < 64; ++fd) {
        const int flags = fcntl(fd, F_GETFD);
        count += flags != -1 && !(flags & FD_CLOEXEC)
            && std::filesystem::is_socket("/proc/self/fd/" + std::to_string(fd));
    }
    return count;
}

} // namespace

TEST_F(LocalSocket, WithoutListenerTheAttemptFailsWithOneDot)
{
    const std::unique_ptr<socketcom> link = connectNow();
    EXPECT_EQ(link->get_state(), -1);
    EXPECT_EQ(text, ".");
    char byte = 0;
    EXPECT_EQ(link->send("x", 1), -1); // its descriptor is closed
    EXPECT_EQ(link->read(&byte, 1), -1);
    link->connectSocket(); // not even a new attempt revives it
    EXPECT_EQ(link->get_state(), -1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(link->get_state(), -1);
    testing::internal::GetCapturedStderr();
}

TEST_F(LocalSocket, AListenerIsConnectedAndBytesGoBothWays)
{
    std::string received;
    Receiver receiver([&](int connection) {
        received = readExactly(connection, 117);
        sendAll(connection, std::string(117, 'r'));
    });
    const std::unique_ptr<socketcom> link = connectNow();
    EXPECT_EQ(link->get_state(), 0);
    EXPECT_EQ(text, "done\n");
    EXPECT_EQ(link->send(std::string(117, 's').c_str(), 117), 117);
    char answer[117] = {};
    EXPECT_EQ(link->read(answer, 117), 117);
    EXPECT_EQ(std::string(answer, 117), std::string(117, 'r'));
    EXPECT_EQ(received, std::string(117, 's'));
}

TEST_F(LocalSocket, APeerThatClosedMakesEveryReadReturnZeroAtOnce)
{
    std::unique_ptr<socketcom> link;
    {
        Receiver receiver([](int) {});
        link = connectNow();
    }
    char byte = 0;
    EXPECT_EQ(link->read(&byte, 1), 0);
    EXPECT_EQ(link->read(&byte, 1), 0);
}

TEST_F(LocalSocket, DeletingClosesTheConnection)
{
    bool ended = false;
    {
        Receiver receiver([&](int connection) { ended = readExactly(connection, 1).empty(); });
        connectNow().reset();
    }
    EXPECT_TRUE(ended);
}

TEST_F(LocalSocket, DeletingAFailedOneReportsTheCloseThatFails)
{
    std::unique_ptr<socketcom> link = connectNow();
    testing::internal::CaptureStderr();
    link.reset();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "disconnect error: Bad file descriptor\n");
}

TEST_F(LocalSocket, ChildrenOfTheDaemonDoNotInheritTheConnection)
{
    Receiver receiver([](int connection) { readExactly(connection, 1); });
    const int before = inheritableSockets();
    const std::unique_ptr<socketcom> link = connectNow();
    EXPECT_EQ(link->get_state(), 0);
    EXPECT_EQ(inheritableSockets(), before);
}

TEST_F(LocalSocket, MetaObjectIsNamedAfterTheClass)
{
    EXPECT_STREQ(socketcom::staticMetaObject.className(), "socketcom");
}
