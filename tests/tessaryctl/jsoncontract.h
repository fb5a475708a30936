#pragma once

#include "commandresult.h"

#include <QStringList>

namespace tessary::test {

/// What the tool printed when it was called with these arguments, --json among them: one document, as the
/// sub-command's schema says, or one a line where they keep coming; a failure ends with an error whose kind
/// is that of the exit status.
void expectContract(const QStringList& arguments, const CommandResult& result);

} // namespace tessary::test
