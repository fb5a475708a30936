// What becomes of the sections that the bus thread delivers: bytes, lists, prints, and the getters.
#include "kit/gstreamer.h"
#include "kit/sections.h"
#include "media/gstimpl.h"
#include "mediatest.h"

using namespace tessary::test;

namespace {

class Tables : public MediaTest
{
protected:
    Tables() { make(); }

    void deliver(const Bytes& section) { postSection(pipeline(), section); }

    /// Returns when everything delivered so far has been taken: a marker PMT of a program of its own goes
    /// behind it.
    void settle()
    {
        ++m_marker;
        deliver(makePmt(static_cast<std::uint16_t>(m_marker)));
        ASSERT_TRUE(prints.waitFor("new PMT received program_number :" + std::to_string(m_marker) + "\r\n"));
    }

    void deliverAndSettle(const Bytes& section)
    {
        deliver(section);
        settle();
    }

    Bytes pat() { return *object().getPAT(); }
    Bytes sdt() { return *object().getSDT(); }
    Bytes nit() { return *object().getNIT(); }

private:
    int m_marker = 0xF000;
};

TEST_F(Tables, StartEmptyAndNeverNull)
{
    EXPECT_TRUE(object().getPAT()->empty());
    EXPECT_TRUE(object().getSDT()->empty());
    EXPECT_TRUE(object().getNIT()->empty());
    EXPECT_EQ(object().getPMT(), nullptr);
    EXPECT_EQ(object().getTotalNumberOfProgramsFound(), 0);
}

TEST_F(Tables, PatKeepsItsProgramsWithoutNumberZero)
{
    const Bytes section = makePat({0, 1, 2});
    deliverAndSettle(section);
    EXPECT_EQ(pat(), section);
    EXPECT_EQ(object().getTotalNumberOfProgramsFound(), 2);
    EXPECT_EQ(object().getProgramNumber(0), 1);
    EXPECT_EQ(object().getProgramNumber(1), 2);
    EXPECT_EQ(prints.text().find("3 programs : \nnew PAT received\n"), 0U);
}

TEST_F(Tables, TheSamePatAgainIsIgnored)
{
    deliver(makePat({0, 1, 2}));
    deliverAndSettle(makePat({0, 1, 2}));
    EXPECT_EQ(prints.count("new PAT received\n"), 1);
    EXPECT_EQ(object().getTotalNumberOfProgramsFound(), 2);
}

TEST_F(Tables, AChangedPatOfTheSameLengthIsIgnoredToo) // known by its length alone: this is meant
{
    const Bytes first = makePat({1, 2}, 0);
    deliver(first);
    deliverAndSettle(makePat({3, 4}, 1));
    EXPECT_EQ(pat(), first);
    EXPECT_EQ(object().getProgramNumber(0), 1);
    EXPECT_EQ(prints.count("new PAT received\n"), 1);
}

TEST_F(Tables, APatOfAnotherLengthReplacesBytesAndList)
{
    deliver(makePat({0, 1, 2}));
    const Bytes second = makePat({7, 6, 5, 4}, 1);
    deliverAndSettle(second);
    EXPECT_EQ(pat(), second);
    EXPECT_EQ(object().getTotalNumberOfProgramsFound(), 4);
    EXPECT_EQ(object().getProgramNumber(0), 7); // in the section's order, not sorted
    EXPECT_EQ(object().getProgramNumber(3), 4);
    EXPECT_EQ(prints.count("new PAT received\n"), 2);
}

TEST_F(Tables, APatThatDoesNotParseAddsItsBytesOnly)
{
    deliver(makePat({1, 2, 3}));
    const Bytes bad = damaged(makePat({4, 5}));
    deliverAndSettle(bad);
    EXPECT_EQ(pat(), bad);
    EXPECT_EQ(object().getTotalNumberOfProgramsFound(), 0);
    EXPECT_EQ(object().getProgramNumber(0), 0);
    EXPECT_EQ(prints.count(" programs : \n"), 1); // the first one's
    EXPECT_EQ(prints.count("new PAT received\n"), 2);
}

TEST_F(Tables, SdtSectionsOfDifferentLengthsAccumulate)
{
    const Bytes first = makeSdt({10, 11}, 100);
    const Bytes second = makeSdt({12}, 120, 1);
    ASSERT_EQ(first.size(), 100U);
    ASSERT_EQ(second.size(), 120U);
    deliverAndSettle(first);
    EXPECT_EQ(sdt().size(), 100U);
    deliverAndSettle(second);
    EXPECT_EQ(sdt(), join({first, second})); // 220
    deliverAndSettle(second);
    EXPECT_EQ(sdt(), join({first, second, second})); // 340: it grows with each repetition, this is meant
    EXPECT_EQ(prints.count("new SDT received\n"), 3);
}

TEST_F(Tables, AnSdtThatGrowsWithoutEndDoesNotFillTheMemory)
{
    constexpr std::size_t kept = 16 * 1024 * 1024;
    const Bytes first = makeSdt({10}, 250);
    const Bytes second = makeSdt({11}, 260, 1);
    object().newSdtSectionReceived(delivered(first));
    for (std::size_t size = first.size(); size < kept + 100 * second.size(); size += second.size())
        object().newSdtSectionReceived(delivered(second));
    EXPECT_EQ(sdt().size(), first.size() + (kept - first.size()) / second.size() * second.size());
}

TEST_F(Tables, AnSdtThatIsTheOnlyOneIsTakenOnce)
{
    const Bytes section = makeSdt({10}, 64);
    deliver(section);
    deliver(section);
    deliverAndSettle(makeSdt({99}, 64));
    EXPECT_EQ(sdt(), section);
    EXPECT_EQ(object().getProgramNumber(0), 10);
    EXPECT_EQ(prints.count("new SDT received\n"), 1);
}

TEST_F(Tables, SdtServicesAreThoseOfTheLastSectionWithoutZero)
{
    deliver(makePat({1}));
    deliver(makeSdt({20, 21}, 100));
    deliverAndSettle(makeSdt({300, 0, 200}, 120));
    EXPECT_EQ(object().getProgramNumber(0), 300);
    EXPECT_EQ(object().getProgramNumber(1), 200);
    EXPECT_EQ(object().getProgramNumber(2), 0);
    const std::string expected = "Service 0 : Program number(SID)= 300\n"
                                 "Service 1 : Program number(SID)= 0\n"
                                 "Service 2 : Program number(SID)= 200\n"
                                 "new SDT received\n";
    EXPECT_NE(prints.text().find(expected), std::string::npos) << prints.text();
}

TEST_F(Tables, AnSdtThatDoesNotParseAddsItsBytesOnly)
{
    deliver(makePat({1}));
    const Bytes first = makeSdt({20}, 100);
    const Bytes bad = damaged(makeSdt({30}, 120));
    deliver(first);
    deliverAndSettle(bad);
    EXPECT_EQ(sdt(), join({first, bad}));
    EXPECT_EQ(prints.count("Service "), 1); // the first one's
    EXPECT_EQ(prints.count("new SDT received\n"), 2);
    EXPECT_EQ(object().getProgramNumber(0), 1); // no service is known: the PAT's program
}

TEST_F(Tables, NitIsHandedOutInTheOrderOfItsSectionNumbers)
{
    const Bytes one = makeNit(1, "second part");
    const Bytes zero = makeNit(0, "first");
    deliver(one);
    deliverAndSettle(zero);
    EXPECT_EQ(nit(), join({zero, one}));
    EXPECT_EQ(prints.text().find("new NIT received (section: 1)\r\nnew NIT received (section: 0)\r\n"), 0U);
}

TEST_F(Tables, NitWithOnlySectionOneIsHandedOutEmpty) // rather than with a gap: this is meant
{
    deliverAndSettle(makeNit(1, "second part"));
    EXPECT_EQ(prints.count("new NIT received (section: 1)\r\n"), 1);
    EXPECT_TRUE(nit().empty());
}

TEST_F(Tables, TheFirstNitSectionOfANumberIsKept)
{
    const Bytes first = makeNit(0, "first");
    deliver(first);
    deliverAndSettle(makeNit(0, "a later version"));
    EXPECT_EQ(nit(), first);
    EXPECT_EQ(prints.count("new NIT received"), 1);
    EXPECT_EQ(nit(), first); // a second call gives the same, not twice
}

TEST_F(Tables, PmtIsNullBeforeTheChosenProgramsPmtArrived)
{
    object().play(2);
    deliverAndSettle(makePmt(1));
    EXPECT_EQ(object().getPMT(), nullptr);
    const Bytes second = makePmt(2);
    deliverAndSettle(second);
    ASSERT_NE(object().getPMT(), nullptr);
    EXPECT_EQ(*object().getPMT(), second);
}

TEST_F(Tables, PmtFollowsTheProgramLastPlayed)
{
    const Bytes one = makePmt(1, 0x201);
    const Bytes two = makePmt(2, 0x202);
    deliver(one);
    deliverAndSettle(two);
    object().play(1);
    EXPECT_EQ(*object().getPMT(), one);
    object().play(2);
    EXPECT_EQ(*object().getPMT(), two);
    object().play(3);
    EXPECT_EQ(object().getPMT(), nullptr);
}

TEST_F(Tables, TheFirstPmtOfAProgramIsKept)
{
    const Bytes first = makePmt(5, 0x201, 0);
    deliver(first);
    deliverAndSettle(makePmt(5, 0x333, 1));
    object().play(5);
    EXPECT_EQ(*object().getPMT(), first);
    EXPECT_EQ(prints.count("new PMT received program_number :5\r\n"), 1);
}

TEST_F(Tables, APmtThatDoesNotParseIsLeftOut)
{
    deliverAndSettle(damaged(makePmt(5)));
    object().play(5);
    EXPECT_EQ(object().getPMT(), nullptr);
    EXPECT_EQ(prints.count("program_number :5\r\n"), 0);
}

TEST_F(Tables, OtherNetworksAndOtherStreamsNeverReachTheTables)
{
    deliver(makeNit(0, "another network", 0x41));
    deliver(makeSdt({77}, 80, 0, 0x46));
    deliverAndSettle(makeSection(0x4E, 1, Bytes(6, 0))); // EIT
    EXPECT_TRUE(nit().empty());
    EXPECT_TRUE(sdt().empty());
    EXPECT_EQ(object().getProgramNumber(0), 0);
    EXPECT_EQ(prints.count("NIT"), 0);
    EXPECT_EQ(prints.count("SDT"), 0);
}

TEST_F(Tables, EverySectionIsReleasedWhateverBecomesOfIt)
{
    std::vector<GstMpegtsSection*> sections;
    const std::vector<Bytes> all = {makePat({1}), makePat({1}), makeSdt({1}, 50), makeSdt({1}, 50),
        makePmt(1), makePmt(1), damaged(makePmt(2)), makeNit(0, "n"), makeNit(0, "n"),
        makeNit(0, "other", 0x41), makeSdt({1}, 60, 0, 0x46)};
    for (const Bytes& bytes : all) {
        sections.push_back(delivered(bytes));
        gst_element_post_message(pipeline(), gst_message_new_mpegts_section(nullptr, sections.back()));
    }
    settle();
    for (GstMpegtsSection* section : sections) {
        EXPECT_EQ(GST_MINI_OBJECT_REFCOUNT_VALUE(section), 1)
            << "table " << static_cast<int>(section->table_id);
        gst_mpegts_section_unref(section);
    }
}

TEST_F(Tables, ClearingEmptiesEveryTable)
{
    deliver(makePat({1, 2}));
    deliver(makeSdt({1, 2}, 60));
    deliver(makeNit(0, "network"));
    deliverAndSettle(makePmt(1));
    object().play(1);
    ASSERT_NE(object().getPMT(), nullptr);
    object().clearPIDFilter();
    EXPECT_TRUE(pat().empty());
    EXPECT_TRUE(sdt().empty());
    EXPECT_TRUE(nit().empty());
    EXPECT_EQ(object().getPMT(), nullptr);
    EXPECT_EQ(object().getTotalNumberOfProgramsFound(), 0);
    EXPECT_EQ(object().getProgramNumber(0), 0);
}

TEST_F(Tables, AfterClearingTheSameSectionsAreTakenAgain)
{
    deliver(makePat({1, 2}));
    deliver(makeSdt({1, 2}, 60));
    deliverAndSettle(makeNit(0, "network"));
    object().clearPIDFilter();
    deliver(makePat({1, 2}));
    deliver(makeSdt({1, 2}, 60));
    deliverAndSettle(makeNit(0, "network"));
    EXPECT_EQ(object().getTotalNumberOfProgramsFound(), 2);
    EXPECT_EQ(sdt().size(), 60U);
    EXPECT_FALSE(nit().empty());
}

TEST_F(Tables, PlayingKeepsTheTables)
{
    deliver(makePat({1, 2}));
    deliverAndSettle(makeSdt({8, 9}, 60));
    object().play(8);
    object().stop();
    EXPECT_EQ(object().getTotalNumberOfProgramsFound(), 2);
    EXPECT_EQ(sdt().size(), 60U);
}

TEST_F(Tables, AHandedOutTableIsNotChangedByASectionThatArrivesLater)
{
    const Bytes first = makePat({1});
    deliverAndSettle(first);
    const std::vector<std::uint8_t>* held = object().getPAT();
    const std::uint8_t* bytes = held->data();
    deliverAndSettle(makePat({1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(*held, first);
    EXPECT_EQ(held->data(), bytes);
    EXPECT_EQ(object().getPAT()->size(), 12U + 8 * 4); // the next call brings the new one
}

TEST_F(Tables, AskingWhileSectionsArriveGivesWholeTables)
{
    const Bytes shortPat = makePat({1, 2});
    const Bytes longPat = makePat({3, 4, 5, 6});
    constexpr int rounds = 320;
    for (int i = 0; i < rounds; ++i) { // each PAT replaces the one before on the bus thread
        deliver(shortPat);
        deliver(longPat);
        deliver(makeNit(static_cast<std::uint8_t>(i % 3), "part"));
        deliver(makeSdt({9, 8, 7}, 100));
        const Bytes seen = pat();
        EXPECT_TRUE(seen.empty() || seen == shortPat || seen == longPat);
        const int programs = object().getTotalNumberOfProgramsFound();
        EXPECT_TRUE(programs == 0 || programs == 2 || programs == 4) << programs;
        EXPECT_TRUE(sdt().empty() || sdt().size() == 100);
        EXPECT_GE(object().getProgramNumber(0), 0);
        nit();
        object().getPMT();
        if (i % 50 == 49)
            object().clearPIDFilter();
    }
    settle();
    EXPECT_EQ(pat(), longPat);
}

TEST_F(Tables, ProgramNumbersOutsideTheListsAreZero)
{
    EXPECT_EQ(object().getProgramNumber(0), 0); // both lists empty
    EXPECT_EQ(object().getProgramNumber(5), 0);
    deliverAndSettle(makePat({4, 5}));
    EXPECT_EQ(object().getProgramNumber(-1), 0);
    EXPECT_EQ(object().getProgramNumber(1), 5);
    EXPECT_EQ(object().getProgramNumber(2), 0);
    deliverAndSettle(makeSdt({6}, 60));
    EXPECT_EQ(object().getProgramNumber(-1), 0);
    EXPECT_EQ(object().getProgramNumber(0), 6); // the services come first
    EXPECT_EQ(object().getProgramNumber(1), 0);
}

} // namespace
