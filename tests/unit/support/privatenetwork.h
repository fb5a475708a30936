#pragma once

#include <string>

/// Network namespace of the test's own, so that interfaces called "eth0" can be made, set up and lost without
/// touching the machine's. The namespace belongs to the calling thread and the threads that it starts later:
/// enter before any thread.
namespace privatenetwork {

/// Enters a namespace that holds nothing but a loopback. Returns an empty text, or the reason why it can not
/// be had (a test then skips with it). A second call does nothing.
std::string enter();

/// Runs "ip" with these arguments, quietly. False when it fails. Needs enter().
bool ip(const std::string& arguments);

/// Makes a veth pair with both ends up and waits for its link: `name`, with an address such as
/// "192.168.77.100/24" if one is given, and `peer`.
bool addVethPair(const std::string& name, const std::string& peer, const std::string& address = {});

/// Waits until the kernel reports the link of `name` as there or not there, which it does in its own
/// time; 5 s at most. Tells whether it does.
bool waitForLink(const std::string& name, bool present);

/// Deletes an interface if it exists; a pair goes with either end.
void remove(const std::string& name);

} // namespace privatenetwork
