#pragma once
// A failure a person has to read: the message is printed as "vxcloud: <message>" and the
// process ends with the exit status. Thrown inside the host application only; the
// component's own calls never throw.
#include <stdexcept>
#include <string>

namespace vxcloud::cli {

enum ExitStatus : int {
    kExitOk = 0,
    kExitFailed = 1,  // something the user asked for did not succeed
    kExitUsage = 2,   // the command line or an input file is wrong
};

class CliError : public std::runtime_error {
public:
    explicit CliError(const std::string& message, int exitStatus = kExitFailed)
        : std::runtime_error(message), exitStatus_(exitStatus) {}
    int exitStatus() const noexcept { return exitStatus_; }

private:
    int exitStatus_;
};

}  // namespace vxcloud::cli
