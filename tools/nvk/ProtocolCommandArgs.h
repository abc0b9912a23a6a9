#pragma once
// What the protocol commands share: one input file beside named options, the list of local
// IDs, the protocol read from a file or standard input and written to a file or standard
// output ("-"), and the answer of a legality check.
#include <initializer_list>
#include <string>
#include <vector>

#include "nvk/platform/String.h"
#include "nvk/platform/iProtocolInfo.h"
#include "nvk/protocol/CProtocolInfo.h"
#include "tools/nvk/Command.h"

namespace nvk {

/// An option followed by its value ("--ids 3,4"); `given` (when not null) is set when it
/// appears; `missing` is the usage error when the value is not there (else "X needs a value").
struct ValueOption {
    const char* name;
    std::string* value;
    bool* given = nullptr;
    const char* missing = nullptr;
};
/// An option on its own ("--check").
struct FlagOption {
    const char* name;
    bool* on;
};

/// Reads the one input file ("-" is one: standard input) and the options. Returns -1 when
/// all is well, else the usage error's exit status ("unknown option X", "X needs a value", "more than one input file",
/// "no input file").
int parseProtocolArgs(const Command& self, const std::vector<std::string>& args, std::string& in,
                  std::initializer_list<ValueOption> values, std::initializer_list<FlagOption> flags = {});

/// Splits "3,4,5" into its items; false when one is not a 32-bit integer.
bool splitLocalIDs(const std::string& list, std::vector<int32_t>& ids);

/// Reads the protocol file `path`; "-" reads standard input, named "(standard input)" in
/// messages.
tovan::Ptr<CProtocolInfo> readProtocol(const std::string& path);
/// Writes the protocol file to `out`, or to standard output when `out` is empty or "-".
void writeProtocol(const tovan::iProtocolInfo* protocol, const std::string& out);
/// Writes `text` (a picture) to `path` ("-": standard output); false, after "nvk NAME: cannot
/// write PATH" on standard error, when it cannot.
bool writeTextFile(const Command& self, const std::string& path, const std::string& text);

/// The answer of a check: with `checkOnly`, "allowed" or the sentence on standard output and
/// the exit status; a refusal otherwise as "nvk NAME: sentence" on standard error and exit 1;
/// -1 when the edit may go on.
int reportCheck(const Command& self, bool allowed, const tovan::WString& message, bool checkOnly);

}  // namespace nvk
