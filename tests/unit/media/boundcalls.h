#pragma once

#include <string>
#include <vector>

/// Which loaded object (the program or a library, by path) defines the function that is called by a name.
namespace boundcalls {

/// The test program itself.
std::string program();

/// The object whose function a look-up by name finds, as the loader looks for it on behalf of any object.
std::string objectThatAnswers(const char* function);

struct Call
{
    std::string caller; ///< object that calls the function by its name
    std::string callee; ///< object in which the call ends
};

/// The calls of every loaded object that refers to the function. A call that the loader has not bound yet
/// ends in its caller.
std::vector<Call> of(const char* function);

} // namespace boundcalls
