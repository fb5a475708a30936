#include "mediaenvironment.h"

#include "kit/gstreamer.h"
#include "standins.h"
#include "support/privatemachine.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <QCoreApplication>

namespace {

std::string privateMachineReason;

class MediaEnvironment : public ::testing::Environment
{
public:
    void SetUp() override
    {
        privateMachineReason = privatemachine::enter(); // before any thread is started
        setenv("GST_REGISTRY", UNIT_MEDIA_FOLDER "/gstreamer-registry.bin", 1);
        setenv("GST_DEBUG_DUMP_DOT_DIR", UNIT_MEDIA_FOLDER, 1);
        unsetenv("GST_PLUGIN_PATH"); // only the system's plug-ins and the stand-ins
        m_application = std::make_unique<QCoreApplication>(m_argumentCount, m_arguments);
        tessary::test::startGStreamer();
        standins::add();
    }

    void TearDown() override { m_application.reset(); }

private:
    int m_argumentCount = 1;
    char m_name[11] = "media_test";
    char* m_arguments[2] = {m_name, nullptr};
    std::unique_ptr<QCoreApplication> m_application;
};

} // namespace

namespace mediaenvironment {

const std::string& noPrivateMachine()
{
    return privateMachineReason;
}

std::string graphFolder()
{
    return UNIT_MEDIA_FOLDER;
}

bool prepare()
{
    static ::testing::Environment* const known =
        ::testing::AddGlobalTestEnvironment(new MediaEnvironment); // gtest owns it
    return known != nullptr;
}

} // namespace mediaenvironment
