#include "client/panel/hub.h"

#include <gtest/gtest.h>
#include <thread>

namespace {

using namespace tessary::panel;
using std::chrono::milliseconds;

TEST(PanelHub, TellsEveryTopicOnceAndThenWhatChanges)
{
    Hub hub;
    hub.set("line", {{"open", true}});
    hub.set("play", nullptr);
    Hub::Place place;
    const auto first = hub.await(place, milliseconds(0));
    EXPECT_EQ(*first, "id: 2\nevent: line\ndata: {\"open\":true}\n\nid: 2\nevent: play\ndata: null\n\n");
    hub.set("play", 7);
    EXPECT_EQ(*hub.await(place, milliseconds(0)), "id: 3\nevent: play\ndata: 7\n\n");
    EXPECT_EQ(*hub.await(place, milliseconds(0)), "");
}

TEST(PanelHub, WhatStaysTheSameIsNotToldAgain)
{
    Hub hub;
    Hub::Place place;
    hub.set("play", 7);
    hub.await(place, milliseconds(0));
    hub.set("play", 7);
    EXPECT_EQ(*hub.await(place, milliseconds(0)), "");
}

TEST(PanelHub, ThoseWhoComeLaterAreToldTheLastEntries)
{
    Hub hub;
    Hub::Place early;
    hub.append("marks", Json::array({1, 2}), 2);
    hub.await(early, milliseconds(0));
    hub.append("marks", Json::array({3}), 2);
    EXPECT_EQ(*hub.await(early, milliseconds(0)), "id: 2\nevent: marks\ndata: [3]\n\n");
    Hub::Place late;
    EXPECT_EQ(*hub.await(late, milliseconds(0)), "id: 2\nevent: marks\ndata: [2,3]\n\n");
    EXPECT_EQ(hub.state(), Json({{"marks", {2, 3}}}));
}

TEST(PanelHub, OneThatHasFallenTooFarBehindIsToldEverythingAnew)
{
    Hub hub;
    Hub::Place place;
    hub.set("line", 0);
    hub.await(place, milliseconds(0));
    for (int i = 0; i < 50; ++i)
        hub.append("line_log", Json::array({std::string(200000, 'x')}), 1);
    const std::string text = *hub.await(place, milliseconds(0));
    EXPECT_NE(text.find("event: line\ndata: 0"), std::string::npos);
    EXPECT_LT(text.size(), 300000U);
}

TEST(PanelHub, ClosingEndsTheWaiting)
{
    Hub hub;
    Hub::Place place;
    hub.set("line", 0);
    hub.await(place, milliseconds(0));
    std::thread close([&] { hub.close(); });
    EXPECT_FALSE(hub.await(place, std::chrono::minutes(10)).has_value());
    close.join();
}

} // namespace
