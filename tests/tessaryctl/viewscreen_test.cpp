#include "toolsuite.h"

#include <QFile>
#include <signal.h>
#include <unistd.h>

namespace {

using namespace tessary::test;

// The full-screen view in tmux, which is the terminal: what stands on its screen is compared.

class Tmux
{
public:
    /// Runs a shell line in a screen of this size; its socket goes into this folder.
    Tmux(const QString& folder, const QString& line, int width, int height)
        : m_socket(folder + newName())
    {
        run({"-f", "/dev/null", "new-session", "-d", "-x", QString::number(width), "-y",
            QString::number(height), "/bin/sh"});
        run({"set", "-g", "status", "off"});
        type("PS1=; clear; " + line + "; echo status $?; stty -a | tr ' ' '\\n' | grep -x -e echo -e icanon");
        press("Enter");
    }
    ~Tmux() { run({"kill-server"}); }
    Tmux(const Tmux&) = delete;
    Tmux& operator=(const Tmux&) = delete;

    QByteArray screen() const { return run({"capture-pane", "-p"}).output; }
    /// With the codes of colours and attributes.
    QByteArray colours() const { return run({"capture-pane", "-p", "-e"}).output; }
    void type(const QString& text) const { run({"send-keys", "-l", text}); }
    void press(const QString& key) const { run({"send-keys", key}); }
    void resize(int width, int height) const
    {
        run({"resize-window", "-x", QString::number(width), "-y", QString::number(height)});
    }

    /// Waits until these words stand on the screen.
    bool shows(const QByteArray& words) const
    {
        return waitUntil([&] { return screen().contains(words); });
    }

    /// Waits until the view has asked the instrument what it knows at its start.
    bool isReady() const
    {
        return waitUntil([&] { return screen().contains("q quit") && !screen().contains("asking"); });
    }

    /// Waits for the program's end; the terminal echoes and takes lines again.
    bool endsWith(int status) const
    {
        return shows("status " + QByteArray::number(status) + "\n") && shows("\nicanon") && shows("\necho");
    }

private:
    static QString newName()
    {
        static int count = 0; // a server that ends would take the next one's session
        return QString("tmux-%1").arg(++count);
    }

    CommandResult run(const QStringList& arguments) const
    {
        return runCommand("/usr/bin/tmux", QStringList{"-S", m_socket} + arguments);
    }

    QString m_socket;
};

class ToolView : public ToolSuite
{
protected:
    static QString view(const QString& environment = "TERM=screen-256color")
    {
        return QString("%1 /bin/sh -c 'echo $$ > %2; exec %3 --port %4 view udp://239.0.0.1:1234'")
            .arg(environment, pidFile(), toolPath(), port());
    }

    static QString pidFile() { return instrument().path("view.pid"); }

    static pid_t pid()
    {
        QFile file(pidFile());
        return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed().toInt() : 0;
    }

    static RunningStream send() { return sendStream(madeStream("services.ts"), {"--bitrate", "10M"}); }
};

TEST_F(ToolView, ShowsServicesPidsDescriptorsPlayerReceptionAndRecording)
{
    const RunningStream stream = send();
    for (const auto& [width, height] : {std::pair{80, 24}, std::pair{200, 60}}) {
        const Tmux tmux(instrument().path(""), view(), width, height);
        ASSERT_TRUE(tmux.isReady()) << tmux.screen().constData();
        tmux.press("s");
        ASSERT_TRUE(tmux.shows("+ 7  ")) << tmux.screen().constData();
        ASSERT_TRUE(waitUntil([&] { return !tmux.screen().contains("scanning"); }))
            << tmux.screen().constData();
        tmux.press("Enter"); // the first service's PIDs
        EXPECT_TRUE(tmux.shows("MPEG-2 video")) << tmux.screen().constData();
        for (const char* key : {"Down", "Down", "Down", "Down", "Down", "Enter", "Down", "Enter"})
            tmux.press(key); // over its PIDs to the fourth service, and to the descriptors of its sound
        EXPECT_TRUE(tmux.shows("registration (0x05)  41432d33")) << tmux.screen().constData();
        tmux.press("Home");
        tmux.press("p");
        EXPECT_TRUE(tmux.shows("<playing>")) << tmux.screen().constData();
        EXPECT_TRUE(tmux.shows("picture and sound")) << tmux.screen().constData();
        tmux.press("m");
        EXPECT_TRUE(tmux.shows("stream present")) << tmux.screen().constData();
        for (const char* words : {"10.3 Mbit/s", "0 since the start", "7 x 188 bytes", "median 1.", "99 % "})
            EXPECT_TRUE(tmux.shows(words)) << words << tmux.screen().constData();
        EXPECT_FALSE(tmux.screen().contains("<playing>")) << "measuring ends it";
        tmux.press("?");
        EXPECT_TRUE(tmux.shows("play the service")) << tmux.screen().constData();
        tmux.press("?");
        EXPECT_TRUE(tmux.shows("stream present")) << tmux.screen().constData();
        tmux.press("q");
        EXPECT_TRUE(tmux.endsWith(0)) << tmux.screen().constData();
        EXPECT_FALSE(tmux.screen().contains("Reception")) << "the screen of before is back";
    }
}

TEST_F(ToolView, FollowsTheTerminalsSize)
{
    const Tmux tmux(instrument().path(""), view(), 80, 24);
    ASSERT_TRUE(tmux.shows("q quit"));
    for (const auto& [width, height] :
        {std::pair{120, 40}, std::pair{50, 20}, std::pair{20, 5}, std::pair{80, 24}}) {
        tmux.resize(width, height);
        const auto lastLineIsTheKeys = [&tmux, lines = height] {
            return tmux.screen().trimmed().split('\n').size() == lines
                && tmux.screen().trimmed().split('\n').last().contains("q quit");
        };
        EXPECT_TRUE(waitUntil(lastLineIsTheKeys)) << width << " x " << height << '\n'
                                                  << tmux.screen().constData();
    }
    tmux.press("q");
    EXPECT_TRUE(tmux.endsWith(0)) << tmux.screen().constData();
}

TEST_F(ToolView, WorksWithoutColour)
{
    const auto colours = [](const QString& environment) {
        const Tmux tmux(instrument().path(""), view(environment), 80, 24);
        EXPECT_TRUE(tmux.shows("Reception")) << environment.toStdString() << tmux.screen().constData();
        const QByteArray seen = tmux.colours();
        tmux.press("q");
        EXPECT_TRUE(tmux.endsWith(0)) << tmux.screen().constData();
        return seen.contains("\x1b[1m\x1b[37m\x1b[44m") || seen.contains("[44m") || seen.contains(";44m");
    };
    EXPECT_TRUE(colours("TERM=screen-256color"));
    EXPECT_FALSE(colours("TERM=vt100"));
    EXPECT_FALSE(colours("NO_COLOR=1 TERM=screen-256color"));
}

TEST_F(ToolView, LeavesTheTerminalInOrderOnEveryWayOut)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const Tmux tmux(instrument().path(""), view(), 80, 24);
        ASSERT_TRUE(tmux.shows("q quit")) << tmux.screen().constData();
        ASSERT_GT(pid(), 1);
        ::kill(pid(), signal);
        EXPECT_TRUE(tmux.endsWith(0)) << signal << tmux.screen().constData();
    }
    const Tmux tmux(instrument().path(""), view("TERM=nosuch"), 80, 24);
    EXPECT_TRUE(tmux.endsWith(2)) << tmux.screen().constData();
    expectFailure(tool({"view"}), 2, "needs a terminal");
}

TEST_F(ToolView, AnInstrumentThatGoesAwayIsSaidAndTheKeysStillWork)
{
    const Tmux tmux(instrument().path(""), view(), 80, 24);
    ASSERT_TRUE(tmux.isReady()) << tmux.screen().constData();
    instrument().daemon("stop");
    tmux.press("m");
    EXPECT_TRUE(tmux.shows("starting the measurement ...")) << tmux.screen().constData();
    tmux.press("?"); // while it waits
    EXPECT_TRUE(tmux.shows("play the service")) << tmux.screen().constData();
    tmux.press("?");
    EXPECT_TRUE(tmux.shows("no answer")) << tmux.screen().constData();
    tmux.press("q");
    EXPECT_TRUE(tmux.endsWith(0)) << tmux.screen().constData();
    restartDaemon();
}

} // namespace
