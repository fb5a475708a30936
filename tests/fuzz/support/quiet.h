#pragma once

#include "support/containment.h"

#include <QString>

/// The first call of a program that runs the daemon's code: shut off from the machine, its log goes nowhere.
inline void startQuietly()
{
    requireContainment();
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
}
