// DAB mode through the dispatcher: entering, relaying blocks, leaving. The receiver's end of the socket is a
// thread of the test; the receiver program itself is a script that notes its environment.
#include "commands/uart_command.h"
#include "link/serialport.h"
#include "media/pciesource.h"
#include "receiver.h"
#include "support/eventually.h"
#include "support/steps.h"
#include "support/testfiles.h"
#include "workerfixture.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <memory>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace std::string_literals;

constexpr std::size_t blockSize = 117;

/// A command as the receiver program gets it: padded with zeros.
std::string block(std::string command)
{
    command.resize(blockSize, '\0');
    return command;
}

/// With a receiver that is there at the first attempt. The receiver program itself is not called by its name.
const std::vector<std::string> enteringSteps{
    "wait 200000", "systemctl|start|weston", "wait 3000000", "wait 500000"};
constexpr std::int64_t attemptPauseUs = 500'000;

class DabMode : public StartedWorker
{
protected:
    void SetUp() override
    {
        StartedWorker::SetUp();
        if (IsSkipped())
            return;
        ASSERT_EQ(coverSocketFolder(), "");
        writeScript("/home/ondrak/qt-dab/qt-dab", "echo $QT_QPA_PLATFORM $XDG_RUNTIME_DIR >> /home/started");
        signal(SIGPIPE, SIG_IGN); // main() has its own way
        controller().readUntilQuiet(30); // the greeting
        m_steps = std::make_unique<Steps>(programs());
        m_steps->onWait = [this](std::int64_t us) { passed(us); };
        log().forget();
    }

    /// What was run and how long was waited, in order, since the last call.
    std::vector<std::string> steps() { return m_steps->take(); }

    /// Waits take their time again.
    void endVirtualTime() { m_steps.reset(); }

    /// Called with the number of each attempt to connect, behind it.
    std::function<void(int)> behindAttempt;

    /// Enters DAB mode with a receiver that serves as told.
    std::unique_ptr<Receiver> start(std::function<void(int)> serve)
    {
        auto receiver = std::make_unique<Receiver>(std::move(serve));
        EXPECT_EQ(cycle("START_DAB\n"), "");
        EXPECT_TRUE(worker().dabStarted());
        return receiver;
    }

private:
    void passed(std::int64_t us)
    {
        m_attempts = us == attemptPauseUs ? m_attempts + 1 : 0;
        if (m_attempts == 1) { // the receiver program comes up in this time
            ++m_starts;
            EXPECT_TRUE(eventually([this] { return lineCount("/home/started") == m_starts; }));
        }
        if (m_attempts > 0 && behindAttempt)
            behindAttempt(m_attempts);
    }

    static long lineCount(const char* path)
    {
        const std::string text = readFile(path);
        return std::count(text.begin(), text.end(), '\n');
    }

    long m_starts = 0;
    int m_attempts = 0;
    std::unique_ptr<Steps> m_steps;
};

void serveNothing(int connection)
{
    readExactly(connection, 1); // until the daemon closes it
}

} // namespace

TEST_F(DabMode, StartHandsDisplayAndSoundOver)
{
    instance = new pciesource;
    testing::internal::CaptureStderr();
    const std::unique_ptr<Receiver> receiver = start(serveNothing);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Tessar connect socket : .done\n");
    EXPECT_EQ(instance, nullptr);
    EXPECT_EQ(steps(), enteringSteps);
    EXPECT_EQ(readFile("/home/started"), "wayland /run/user/0\n");
    EXPECT_TRUE(log().contains("Tessary  : systemctl start weston"));
    EXPECT_TRUE(log().contains("Tessary  : command:/home/ondrak/qt-dab/qt-dab &"));
    cycle("STOP_DAB\n");
}

TEST_F(DabMode, ASecondStartIsIgnored)
{
    const std::unique_ptr<Receiver> receiver = start(serveNothing);
    steps();
    EXPECT_EQ(cycle("START_DAB\n"), "");
    EXPECT_TRUE(steps().empty());
    cycle("STOP_DAB\n");
}

TEST_F(DabMode, StopGivesDisplayAndSoundBack)
{
    const std::unique_ptr<Receiver> receiver = start(serveNothing);
    steps();
    log().forget();
    testing::internal::CaptureStderr();
    EXPECT_EQ(cycle("STOP_DAB\n"), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "\n\nTessary  : socket deleted\n\n");
    EXPECT_FALSE(worker().dabStarted());
    EXPECT_EQ(steps(), (std::vector<std::string>{"killall|qt-dab", "wait 4000000", "systemctl|stop|weston"}));
    EXPECT_TRUE(log().contains("Tessary  : killall qt-dab"));
    EXPECT_TRUE(log().contains("Tessary  : socket delete"));
    EXPECT_TRUE(log().contains("Tessary  : systemctl stop weston"));
    EXPECT_EQ(instance, nullptr);
    EXPECT_EQ(cycle("STOP_DAB\n"), ""); // outside DAB mode: ignored
    EXPECT_TRUE(steps().empty());
}

TEST_F(DabMode, AReceiverThatOpensLateIsFoundByTheLastAttempt)
{
    std::unique_ptr<Receiver> late;
    behindAttempt = [&late](int attempt) {
        if (attempt == 79) // one is left
            late = std::make_unique<Receiver>(serveNothing);
    };
    testing::internal::CaptureStderr();
    cycle("START_DAB\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
        "Tessar connect socket : ." + std::string(79, '.') + "done\n");
    EXPECT_TRUE(worker().dabStarted());
    cycle("STOP_DAB\n");
}

TEST_F(DabMode, AReceiverThatNeverOpensLeavesPlayerModeAfterEightyAttempts)
{
    testing::internal::CaptureStderr();
    EXPECT_EQ(cycle("START_DAB\n"), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Tessar connect socket : ." + std::string(80, '.'));
    EXPECT_FALSE(worker().dabStarted());
    EXPECT_EQ(cycle("dab tune\n"), "");

    std::vector<std::string> expected = enteringSteps;
    expected.insert(expected.end(), 79, "wait 500000");
    EXPECT_EQ(steps(), expected);

    // The next start runs the whole sequence again.
    const std::unique_ptr<Receiver> receiver = start(serveNothing);
    EXPECT_EQ(steps(), enteringSteps);
    EXPECT_EQ(readFile("/home/started"), "wayland /run/user/0\nwayland /run/user/0\n");
    cycle("STOP_DAB\n");
}

TEST_F(DabMode, AShortCommandIsRelayedPaddedWithZeros)
{
    std::string received;
    const std::unique_ptr<Receiver> receiver = start([&](int connection) {
        received = readExactly(connection, blockSize);
        sendAll(connection, std::string(blockSize, 'r'));
    });
    EXPECT_EQ(cycle("dab tune 5A\n"), std::string(blockSize, 'r'));
    EXPECT_EQ(received, block("dab tune 5A\n"));
    cycle("STOP_DAB\n");
}

TEST_F(DabMode, ACommandAtTheEndOfAFullBurstIsPaddedWithZeros)
{
    std::string received;
    const std::unique_ptr<Receiver> receiver = start([&](int connection) {
        received = readExactly(connection, blockSize);
        sendAll(connection, std::string(blockSize, 'r'));
    });
    EXPECT_EQ(cycle(std::string(630, 'x') + "\0dab tune\n"s), std::string(blockSize, 'r'));
    EXPECT_EQ(received, block("dab tune\n"));
    cycle("STOP_DAB\n");
}

TEST_F(DabMode, BlocksOfAllByteValuesPassUnchangedBothWays)
{
    std::mt19937 random(1);
    std::vector<std::string> requests;
    std::vector<std::string> answers;
    for (int i = 0; i < 40; ++i) {
        std::string request = "dab";
        std::string answer;
        while (request.size() < blockSize - 1)
            request += static_cast<char>(random() & 0xFF);
        while (answer.size() < blockSize)
            answer += static_cast<char>(random() & 0xFF);
        requests.push_back(request + "\n");
        answers.push_back(answer);
    }
    std::vector<std::string> received;
    const std::unique_ptr<Receiver> receiver = start([&](int connection) {
        for (const std::string& answer : answers) {
            received.push_back(readExactly(connection, blockSize));
            sendAll(connection, answer);
        }
    });
    for (std::size_t i = 0; i < requests.size(); ++i)
        EXPECT_EQ(cycle(requests[i]), answers[i]) << i;
    EXPECT_EQ(received, requests);
    cycle("STOP_DAB\n");
}

TEST_F(DabMode, AnAnswerInPiecesIsDroppedAndAWholeOneAwaited)
{
    const std::unique_ptr<Receiver> receiver = start([](int connection) {
        readExactly(connection, blockSize);
        sendAll(connection, std::string(50, 'a'));
        waitUntilRead(connection);
        sendAll(connection, std::string(67, 'b'));
        waitUntilRead(connection);
        sendAll(connection, std::string(blockSize, 'c'));
    });
    EXPECT_EQ(cycle("dab tune\n"), std::string(blockSize, 'c'));
    cycle("STOP_DAB\n");
}

TEST_F(DabMode, ACommandToAReceiverThatIsGoneIsAnsweredWithSilence)
{
    std::unique_ptr<Receiver> receiver = start([](int) {});
    receiver.reset(); // its end is closed
    EXPECT_EQ(cycle("dab tune\n"), "");
    EXPECT_TRUE(worker().dabStarted());
    cycle("STOP_DAB\n");
}

TEST_F(DabMode, AReceiverThatDiesBeforeItsAnswerHoldsTheDaemonUp)
{
    const std::unique_ptr<Receiver> receiver =
        start([](int connection) { readExactly(connection, blockSize); }); // and closes
    const pid_t daemon = fork(); // only a process of its own can be left in there
    if (daemon == 0) {
        endVirtualTime();
        worker().forwardDAB(block("dab tune\n").c_str());
        _exit(0);
    }
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_EQ(waitpid(daemon, nullptr, WNOHANG), 0) << "the relay has no time-out";
    kill(daemon, SIGKILL);
    waitpid(daemon, nullptr, 0);
    EXPECT_EQ(controller().readUntilQuiet(), "");
    cycle("STOP_DAB\n");
}

TEST_F(DabMode, OtherCommandsStayAvailable)
{
    programs().add("ping", "pong");
    const std::unique_ptr<Receiver> receiver = start(serveNothing);
    EXPECT_EQ(cycle("ping x\n"), "pong");
    EXPECT_EQ(cycle("PVR_reclist\n"), "reclist file:0 Bytes");
    cycle("STOP_DAB\n");
}
