#include "workerfixture.h"

#include "link/serialport.h"
#include "measure/ethernetmeasurement.h"
#include "media/gstsource.h"
#include "support/privatenetwork.h"

#include <QCoreApplication>

namespace {

/// Timers need an application object.
void ensureApplication()
{
    static int argc = 1;
    static char name[] = "worker_test";
    static char* argv[] = {name, nullptr};
    static QCoreApplication application(argc, argv);
}

std::string privateMachine()
{
    std::string reason = privatemachine::enter();
    if (reason.empty())
        reason = privatenetwork::enter();
    for (const char* folder : {"/sys", "/home"}) {
        if (reason.empty())
            reason = privatemachine::coverWithEmpty(folder);
    }
    return reason;
}

} // namespace

void StartedWorker::SetUp()
{
    const std::string reason = privateMachine();
    if (!reason.empty())
        GTEST_SKIP() << reason;
    ensureApplication();
    m_programs = std::make_unique<RecordedPrograms>();
    for (const char* name : {"nmcli", "amixer", "smcroute", "systemctl", "killall"})
        m_programs->add(name);
    m_controller = std::make_unique<PseudoLine>("/dev/ttymxc1");
    m_worker = std::make_unique<Worker>();
}

void StartedWorker::TearDown()
{
    if (!m_worker)
        return;
    gstStop();
    m_worker.reset();
    uart.SerialPortDisconnect();
    delete ethMes;
    ethMes = nullptr;
}

std::string StartedWorker::cycle(const std::string& burst)
{
    controller().write(burst);
    worker().doWork();
    return controller().readUntilQuiet(30);
}
