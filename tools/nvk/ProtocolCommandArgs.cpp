#include "tools/nvk/ProtocolCommandArgs.h"

#include <cstdio>
#include <fstream>
#include <iostream>

#include "nvk/platform/NumberText.h"
#include "nvk/platform/FileInterface.h"
#include "nvk/protocol/CProtocolFile.h"
#include "tools/nvk/RecordIO.h"

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
        } else if (a.size() > 1 && a[0] == '-') {
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

tovan::Ptr<CProtocolInfo> readProtocol(const std::string& path) {
    if (!isStandardStream(path)) return CProtocolFile::Read(tovan::toWide(path));
    tovan::vcFileInterface in;
    in.openStream(stdin, tovan::FileMode::Read, tovan::toWide(displayName(path, false)));
    return CProtocolFile::Read(in);
}

void writeProtocol(const tovan::iProtocolInfo* protocol, const std::string& out) {
    if (out.empty() || isStandardStream(out)) std::cout << tovan::toNarrow(CProtocolFile::WriteText(protocol));
    else CProtocolFile::Write(protocol, tovan::toWide(out));
}

bool writeTextFile(const Command& self, const std::string& path, const std::string& text) {
    if (isStandardStream(path)) {
        std::cout << text;
        std::cout.flush();
        if (std::cout) return true;
    } else {
        std::ofstream file(path, std::ios::binary);
        file << text;
        file.close();
        if (file) return true;
    }
    std::cerr << "nvk " << self.name << ": cannot write " << displayName(path, true) << "\n";
    return false;
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
