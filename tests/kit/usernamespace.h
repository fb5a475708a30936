#pragma once

namespace tessary::test {

/// True where root is a user in a namespace of their own (user_namespaces(7)): no device nodes, no real-time
/// priorities, and an overlay keeps its marks in other attributes.
bool inUserNamespace();

} // namespace tessary::test
