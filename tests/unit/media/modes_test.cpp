// Recording, sending to the FPGA, scanning, and the graph file.
#include "kit/gstreamer.h"
#include "kit/packets.h"
#include "kit/sections.h"
#include "media/gstimpl.h"
#include "mediaenvironment.h"
#include "mediatest.h"
#include "standins.h"
#include "support/testfiles.h"

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

using namespace tessary::test;

using Names = std::vector<std::string>;

class Modes : public MediaTest
{
protected:
    ~Modes() override { standins::setFpgaFile("/dev/null"); }

    /// A source that plays a file once.
    static GstElement* fileSource(const std::string& path)
    {
        GstElement* source = gst_element_factory_make("filesrc", "my_bin");
        g_object_set(source, "location", path.c_str(), "blocksize", 18800u, nullptr);
        return source;
    }

    /// Writes 500 null packets and gives the file's name.
    std::string streamFile()
    {
        std::string path = folder.file("stream.ts");
        writeBytes(path, join(std::vector<Bytes>(500, packet(0x1FFF, 0, 0xA5))));
        return path;
    }

    void waitForEnd(int times = 1)
    {
        ASSERT_TRUE(prints.waitFor("EOS\n", times));
        ASSERT_TRUE(reaches(GST_STATE_NULL));
    }

    ScratchFolder folder;
};

TEST_F(Modes, RecordBuildsAnUnboundedBranchToTheFile)
{
    make();
    log.forget();
    object().record(folder.file("a.ts"));
    EXPECT_EQ(log.lines(), Names{"------------------gstImpl record ------------------"});
    EXPECT_EQ(watch.added(), (Names{"my_bin", "queue1", "tee", "queueRecord", "filesink1"}));
    EXPECT_EQ(factoryName(element("queueRecord")), "queue");
    EXPECT_EQ(factoryName(element("filesink1")), "filesink");
    EXPECT_EQ(teeBranches(), Names{"queueRecord"});
    EXPECT_EQ(next("queueRecord"), "filesink1");
    for (const char* limit : {"max-size-buffers", "max-size-bytes", "max-size-time"})
        EXPECT_EQ(propertyText(element("queueRecord"), limit), "0") << limit;
    EXPECT_EQ(propertyText(element("filesink1"), "location"), folder.file("a.ts"));
    EXPECT_EQ(status(), "running");
}

TEST_F(Modes, ASecondRecordSwitchesTheFileOfTheOneBranch)
{
    make().record(folder.file("a.ts"));
    GstElement* sink = element("filesink1");
    object().record(folder.file("b.ts"));
    EXPECT_EQ(element("filesink1"), sink);
    EXPECT_EQ(elements(), (Names{"filesink1", "my_bin", "queue1", "queueRecord", "tee"}));
    EXPECT_EQ(teeBranches(), Names{"queueRecord"});
    EXPECT_EQ(propertyText(sink, "location"), folder.file("b.ts"));
    EXPECT_TRUE(std::filesystem::exists(folder.file("a.ts")));
    EXPECT_TRUE(std::filesystem::exists(folder.file("b.ts")));
}

TEST_F(Modes, RecordWritesTheWholeStreamUnchanged)
{
    const std::string path = streamFile();
    make(fileSource(path)).record(folder.file("copy.ts"));
    waitForEnd();
    EXPECT_EQ(status(), "stopped");
    EXPECT_EQ(readFile(folder.file("copy.ts")), readFile(path));
    EXPECT_EQ(elements().size(), 5U); // the branch stays until stop
}

TEST_F(Modes, ARecordingThatCanNotBeOpenedKeepsTheObjectUsable)
{
    make(fileSource(streamFile())).record(folder.file("no/such/folder/a.ts"));
    EXPECT_EQ(status(), "running"); // the failure shows on the bus only
    object().record(folder.file("b.ts"));
    waitForEnd();
    EXPECT_EQ(std::filesystem::file_size(folder.file("b.ts")), 500U * 188);
}

TEST_F(Modes, SendBuildsTheBranchToTheFpga)
{
    make();
    log.forget();
    object().sendStream();
    EXPECT_EQ(log.lines(), Names{"------------------gstImpl sendTSstream ------------------"});
    EXPECT_EQ(watch.added(), (Names{"my_bin", "queue1", "tee", "queuePciesink", "pciesink1"}));
    EXPECT_EQ(factoryName(element("queuePciesink")), "queue");
    EXPECT_EQ(factoryName(element("pciesink1")), "pciesink");
    EXPECT_EQ(teeBranches(), Names{"queuePciesink"});
    EXPECT_EQ(next("queuePciesink"), "pciesink1");
    GstElement* fresh = gst_element_factory_make("queue", nullptr);
    for (const char* limit : {"max-size-buffers", "max-size-bytes", "max-size-time"})
        EXPECT_EQ(propertyText(element("queuePciesink"), limit), propertyText(fresh, limit)) << limit;
    gst_object_unref(fresh);
    EXPECT_EQ(status(), "running");
}

TEST_F(Modes, SendBesideAnotherModeFeedsBothBranches)
{
    const std::string path = streamFile();
    standins::setFpgaFile(folder.file("fpga.ts"));
    make(fileSource(path)).record(folder.file("copy.ts"));
    waitForEnd();
    object().sendStream(); // the record branch is still there
    EXPECT_EQ(teeBranches(), (Names{"queueRecord", "queuePciesink"}));
    waitForEnd(2);
    EXPECT_EQ(readFile(folder.file("fpga.ts")), readFile(path));
    EXPECT_EQ(readFile(folder.file("copy.ts")), readFile(path)); // written afresh
}

TEST_F(Modes, ScanBuildsAnUnboundedParsingBranch)
{
    make();
    log.forget();
    object().scan();
    EXPECT_EQ(log.lines(), Names{"------------------gstImpl scan ------------------"});
    EXPECT_EQ(watch.added(), (Names{"my_bin", "queue1", "tee", "queueTsParse", "tsparse", "fakesink"}));
    EXPECT_EQ(factoryName(element("queueTsParse")), "queue");
    EXPECT_EQ(factoryName(element("tsparse")), "tsparse");
    EXPECT_EQ(factoryName(element("fakesink")), "fakesink");
    EXPECT_EQ(teeBranches(), Names{"queueTsParse"});
    EXPECT_EQ(next("queueTsParse"), "tsparse");
    EXPECT_EQ(next("tsparse"), "fakesink");
    for (const char* limit : {"max-size-buffers", "max-size-bytes", "max-size-time"})
        EXPECT_EQ(propertyText(element("queueTsParse"), limit), "0") << limit;
    EXPECT_EQ(propertyText(element("fakesink"), "async"), "false");
    EXPECT_EQ(status(), "running");
}

TEST_F(Modes, ASecondScanEmptiesTheTablesAndReusesTheBranch)
{
    make().scan();
    GstElement* parser = element("tsparse");
    postSection(pipeline(), makePat({1, 2}));
    ASSERT_TRUE(prints.waitFor("new PAT received\n"));
    EXPECT_EQ(object().getTotalNumberOfProgramsFound(), 2);
    const Names added = watch.added();
    object().scan();
    EXPECT_EQ(object().getTotalNumberOfProgramsFound(), 0);
    EXPECT_TRUE(object().getPAT()->empty());
    EXPECT_EQ(element("tsparse"), parser);
    EXPECT_EQ(watch.added(), added);
    EXPECT_EQ(teeBranches(), Names{"queueTsParse"});
}

TEST_F(Modes, AScanOfAFileEndsByItselfAtTheFilesEnd)
{
    make(fileSource(streamFile())).scan();
    waitForEnd();
    EXPECT_EQ(status(), "stopped");
    EXPECT_EQ(elements().size(), 6U);
}

TEST_F(Modes, ModesAreNotExclusive)
{
    make().play(1);
    object().record(folder.file("a.ts"));
    EXPECT_EQ(teeBranches(), (Names{"decodebin1", "queueRecord"}));
    EXPECT_EQ(status(), "running");
}

TEST_F(Modes, TheGraphIsWrittenInDetailUnderTheGivenName)
{
    const std::string name = "modes-test-graph-" + std::to_string(getpid());
    const std::string path = mediaenvironment::graphFolder() + "/" + name + ".dot";
    make().scan();
    log.forget();
    object().debugdotfile(name);
    EXPECT_EQ(log.lines(), Names{"------------------gstImpl debugdotfile ------------------"});
    const std::string graph = readFile(path);
    std::filesystem::remove(path);
    EXPECT_NE(graph.find("queueTsParse"), std::string::npos);
    EXPECT_NE(graph.find("max-size-bytes=20000000"), std::string::npos); // not only names: all details
}

} // namespace
