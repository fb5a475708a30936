// The tables' way to the controller: what a scan found goes over the line byte for byte.
#include "commands/uart_command.h"
#include "kit/gstreamer.h"
#include "kit/handlertest.h"
#include "kit/sections.h"
#include "media/gstimpl.h"
#include "media/gstsource.h"
#include "support/allocations.h"
#include "system/mydata.h"

#include <gtest/gtest.h>
#include <thread>

namespace {

using namespace tessary::test;

/// A source without stream: the test hands its pipeline the sections that a scan would find.
class TableSource : public gstsource
{
public:
    TableSource()
    {
        GstElement* silent = gst_element_factory_make("fakesrc", nullptr);
        g_object_set(silent, "num-buffers", 0, nullptr);
        impl = new gstImpl(silent);
    }
    ~TableSource() override { delete impl; }

    void receiveSdt(const Bytes& section) { receiveSdt(delivered(section)); }
    void receiveSdt(GstMpegtsSection* section) { impl->newSdtSectionReceived(section); }
    void receivePat(GstMpegtsSection* section) { impl->newPatSectionReceived(section); }
    void receiveNit(const Bytes& section) { impl->newNitSectionReceived(delivered(section)); }
    void receivePmt(const Bytes& section) { impl->newPmtSectionReceived(delivered(section)); }
};

class TableReplies : public HandlerTest
{
protected:
    void prepare() override
    {
        source = new TableSource;
        instance = source;
    }

    /// Reads while the command runs: a long reply is more than the line holds.
    Bytes replyTo(void (*command)(), std::size_t expected)
    {
        std::string text;
        std::thread reader([&] { text = controller().read(expected); });
        command();
        reader.join();
        text += controller().readUntilQuiet(30); // nothing may follow
        return {text.begin(), text.end()};
    }

    TableSource* source = nullptr; ///< the current source
};

} // namespace

TEST_F(TableReplies, TheServiceTableComesBehindItsMark)
{
    const Bytes sdt = makeSdt({1, 2}, 120);
    source->receiveSdt(sdt);
    const Bytes mark{'<', 'S', 'D', 'T', '>'};
    EXPECT_EQ(replyTo(Uart_StreamInfo, mark.size() + sdt.size()), join({mark, sdt}));
}

TEST_F(TableReplies, AServiceTableLongerThanTheLineTakesAtOnceComesWhole)
{
    Bytes expected{'<', 'S', 'D', 'T', '>'};
    for (std::uint8_t number = 0; number < 5; ++number) { // each of another length: all of them are kept
        const Bytes sdt = makeSdt({number}, 1000U + number, number);
        source->receiveSdt(sdt);
        expected = join({expected, sdt});
    }
    ASSERT_GT(expected.size(), 4096U);
    EXPECT_EQ(replyTo(Uart_StreamInfo, expected.size()), expected);
}

TEST_F(TableReplies, AServiceTableThatHasGrownIsCopiedOnceOnItsWay)
{
    constexpr std::size_t tableBytes = 1000000;
    for (std::size_t size = 0; size < tableBytes; size += 2001) {
        source->receiveSdt(makeSdt({1}, 1000));
        source->receiveSdt(makeSdt({2}, 1001, 1));
    }
    allocations::resetPeak();
    const std::vector<std::uint8_t>* information = instance->getStreamInformation();
    ASSERT_GT(information->size(), tableBytes);
    EXPECT_GT(allocations::peak(), tableBytes); // the one copy
    EXPECT_LT(allocations::peak(), tableBytes * 3 / 2);
}

TEST_F(TableReplies, ASectionThatIsNotStoredIsNotCopied)
{
    source->receiveSdt(makeSdt({1}, 1000));
    GstMpegtsSection* again = delivered(makeSdt({1}, 1000));
    allocations::resetPeak();
    source->receiveSdt(again);
    EXPECT_LT(allocations::peak(), 500U);

    const std::vector<std::uint16_t> programs(200, 5);
    source->receivePat(delivered(makePat(programs)));
    again = delivered(makePat(programs));
    allocations::resetPeak();
    source->receivePat(again);
    EXPECT_LT(allocations::peak(), 400U);
}

TEST_F(TableReplies, TheStatusFrameCopiesNoTable)
{
    source->receiveSdt(makeSdt({1}, 1000));
    source->receiveSdt(makeSdt({2}, 1001, 1));
    controller().readUntilQuiet(30);
    allocations::resetPeak();
    Uart_StatusEBS();
    EXPECT_LT(allocations::peak(), 1500U);
    EXPECT_EQ(controller().readUntilQuiet(), "*17_a.FL:02_NS:00$_DS:00");
}

TEST_F(TableReplies, NetworkSectionsFollowOneAnother)
{
    const Bytes first = makeNit(0, "First network");
    const Bytes second = makeNit(1, "and its second section");
    source->receiveNit(first);
    source->receiveNit(second);
    EXPECT_EQ(replyTo(Uart_GetNIT, first.size() + second.size()), join({first, second}));
}

TEST_F(TableReplies, TheProgramMapIsThatOfTheProgramThatIsPlayed)
{
    const Bytes played = makePmt(7);
    source->receivePmt(makePmt(6));
    source->receivePmt(played);
    EXPECT_EQ(replyTo(Uart_GetPMT, 0), Bytes()); // nothing is played yet
    instance->play(7);
    EXPECT_EQ(replyTo(Uart_GetPMT, played.size()), played);
}
