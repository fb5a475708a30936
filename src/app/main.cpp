#include "app/worker.h"
#include "media/metatypes.h"
#include "system/version.h"

#include <csignal>
#include <QCoreApplication>
#include <QString>

namespace {

/// A peer that goes away while something is written to it must not end the daemon. A handler instead of
/// "ignore", because ignored signals would stay ignored in the programs that the daemon starts.
void surviveBrokenPipes()
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGPIPE, &action, nullptr);
}

} // namespace

int main(int argc, char** argv)
{
    surviveBrokenPipes();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Tessary"));
    QCoreApplication::setApplicationVersion(QString::fromLatin1(softwareVersion));
    QCoreApplication::setOrganizationDomain(QStringLiteral("ondrak.example"));
    QCoreApplication::setOrganizationName(QStringLiteral("Ondrak"));
    registerMetaTypes();
    Worker worker;
    return QCoreApplication::exec();
}
