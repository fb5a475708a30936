#include "client/tessaryctl/failure.h"

namespace tessary::ctl {

const char* wordOf(ExitCode code)
{
    switch (code) {
    case ExitCode::Success:
        return "success";
    case ExitCode::Internal:
        return "internal";
    case ExitCode::Usage:
        return "usage";
    case ExitCode::NoInstrument:
        return "no-instrument";
    case ExitCode::TimedOut:
        return "timed-out";
    case ExitCode::HungUp:
        return "hung-up";
    case ExitCode::Nothing:
        return "nothing";
    case ExitCode::NoLink:
        return "no-link";
    case ExitCode::BadAnswer:
        return "bad-answer";
    case ExitCode::LocalFile:
        return "local-file";
    case ExitCode::CardFull:
        return "card-full";
    case ExitCode::WouldDestroy:
        return "would-destroy";
    case ExitCode::CommandFailed:
        return "command-failed";
    case ExitCode::UpdateNotStarted:
        return "update-not-started";
    case ExitCode::UpdateRefused:
        return "update-refused";
    case ExitCode::UpdateBytesLost:
        return "update-bytes-lost";
    case ExitCode::UpdateRestarted:
        return "update-restarted";
    case ExitCode::UpdateUnconfirmed:
        return "update-unconfirmed";
    case ExitCode::LimitCrossed:
        return "limit-crossed";
    case ExitCode::Interrupted:
        return "interrupted";
    }
    return "internal";
}

} // namespace tessary::ctl
