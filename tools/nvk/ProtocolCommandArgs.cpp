#include "tools/nvk/ProtocolCommandArgs.h"

#include <iostream>

#include "nvk/platform/NumberText.h"
#include "nvk/protocol/CProtocolFile.h"

namespace nvk {

int parseProtocolArgs(const Command& self, const std::vector<std::string>& args, std::string& in,
                  std::initializer_list<ValueOption> values, std::initializer_list<FlagOption> flags) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const ValueOption* value = nullptr;
        bool flag = false;
        for (const ValueOption& v : values)
            if (a == v.name) value = &v;
        for (const FlagOption& f : flags)
            if (a == f.name) *f.on = flag = true;
        if (value) {
            if (i + 1 >= args.size()) return usageError(self, value->missing ? value->missing : a + " needs a value");
            *value->value = args[++i];
            if (value->given) *value->given = true;
        } else if (flag) {
            continue;
        } else if (!a.empty() && a[0] == '-') {
            return usageError(self, "unknown option " + a);
        } else if (in.empty()) {
            in = a;
        } else {
            return usageError(self, "more than one input file");
        }
    }
    if (in.empty()) return usageError(self, "no input file");
    return -1;
}

bool splitLocalIDs(const std::string& list, std::vector<int32_t>& ids) {
    ids.clear();
    for (size_t pos = 0;;) {
        const size_t comma = list.find(',', pos);
        const std::string item = list.substr(pos, comma == std::string::npos ? std::string::npos : comma - pos);
        int32_t v = 0;
        if (!tovan::parseInteger(std::string_view(item), v, tovan::NumberSigns::PlusOrMinus)) return false;
        ids.push_back(v);
        if (comma == std::string::npos) return true;
        pos = comma + 1;
    }
}

void writeProtocol(const tovan::iProtocolInfo* protocol, const std::string& out) {
    if (out.empty()) std::cout << tovan::toNarrow(CProtocolFile::WriteText(protocol));
    else CProtocolFile::Write(protocol, tovan::toWide(out));
}

int reportCheck(const Command& self, bool allowed, const tovan::WString& message, bool checkOnly) {
    if (checkOnly) {
        std::cout << (allowed ? "allowed" : tovan::toNarrow(message)) << "\n";
        return allowed ? ExitOk : ExitBadInput;
    }
    if (allowed) return -1;
    std::cerr << "nvk " << self.name << ": " << tovan::toNarrow(message) << "\n";
    return ExitBadInput;
}

}  // namespace nvk
