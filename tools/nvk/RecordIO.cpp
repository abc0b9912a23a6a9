#include "tools/nvk/RecordIO.h"

#include <iostream>

#include "nvk/data/NodeStream.h"
#include "nvk/interchange/CJsonReader.h"
#include "nvk/interchange/JsonUtilities.h"
#include "nvk/interchange/NodeTreeText.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/FileInterface.h"
#include "nvk/platform/NumberText.h"

namespace nvk {

namespace {

std::string supportedVersions() {
    return tovan::integerText(kMinNodeFileVersion) + " to " + tovan::integerText(kMaxNodeFileVersion);
}

std::string recordCount(size_t n) { return tovan::integerText(n) + (n == 1 ? " record" : " records"); }

}  // namespace

int parseRecordArgs(const Command& self, const std::vector<std::string>& args, int allowed, RecordArgs& out) {
    std::string version;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool known = (a == "--to-json" && (allowed & AllowToJson)) ||
                           ((a == "--to-bin" || a == "--stream-version") && (allowed & AllowToBin));
        if (known) {
            if (i + 1 >= args.size())
                return usageError(self, a + (a == "--stream-version" ? " needs a number" : " needs an output file"));
            const std::string& value = args[++i];
            (a == "--to-json" ? out.toJson : a == "--to-bin" ? out.toBin : version) = value;
        } else if (a.size() > 1 && a[0] == '-') {
            return usageError(self, "unknown option '" + a + "'");
        } else if (out.input.empty()) {
            out.input = a;
        } else {
            return usageError(self, "only one input file");
        }
    }
    if (out.input.empty()) return usageError(self, "no input file");
    if (!version.empty()) {
        if (out.toBin.empty()) return usageError(self, "--stream-version applies only to --to-bin");
        int v = 0;
        if (!tovan::parseInteger(std::string_view(version), v, tovan::NumberSigns::None) || v < kMinNodeFileVersion ||
            v > kMaxNodeFileVersion)
            return usageError(self, "unsupported stream version '" + version + "' (supported: " +
                                        supportedVersions() + ")");
        out.streamVersion = v;
    }
    return -1;
}

bool readJsonRecords(const Command& self, const std::string& path, NodeList& records) {
    tovan::vcFileInterface file(tovan::toWide(path), tovan::FileMode::Read);
    CJsonReader reader(&file);
    try {
        reader.ResetStream();
        tovan::Array<tovan::Ptr<tovan::iNode>> nodes;
        while (reader.ReadNextObject(nodes)) {
            for (auto& node : nodes) records.push_back(std::move(node));
            nodes = {};
        }
    } catch (const tovan::Exception& e) {
        cajun::json::Location at = reader.GetErrorLocation();
        std::cerr << "nvk " << self.name << ": " << path << ":" << at.line + 1 << ":" << at.column + 1 << ": "
                  << e.what() << "\n";
        return false;
    }
    return true;
}

bool readNodeRecords(const Command& self, const std::string& path, NodeList& records) {
    NodeFileReader file(tovan::toWide(path));
    try {
        while (tovan::Ptr<tovan::iNode> node = file.next()) records.push_back(std::move(node));
    } catch (const tovan::Exception& e) {
        std::cerr << "nvk " << self.name << ": " << path << ": byte " << file.offset() << ": " << e.what() << "\n";
        return false;
    }
    return true;
}

void printRecords(const NodeList& records) {
    for (size_t r = 0; r < records.size(); ++r)
        std::cout << "record " << r + 1 << "\n" << DescribeNodeTree(*records[r], 1);
}

void writeJsonRecords(const NodeList& records, const std::string& path) {
    tovan::vcFileInterface out(tovan::toWide(path), tovan::FileMode::Write);
    CJsonWriter* writer = JsonUtilities::CreateJsonWriter(&out);
    try {
        writer->array();
        for (const auto& node : records) JsonUtilities::AppendElementToArray(*writer, node.get(), true, true, false);
        writer->endArray();
        JsonUtilities::DestroyJsonWriter(writer);
    } catch (...) {
        JsonUtilities::DestroyJsonWriter(writer);
        throw;
    }
    out.writeChar(u'\n');
    out.close();
    std::cout << "wrote " << recordCount(records.size()) << " to " << path << "\n";
}

void writeNodeRecords(const NodeList& records, const std::string& path, int streamVersion) {
    writeNodeFile(tovan::toWide(path), records, streamVersion);
    std::cout << "wrote " << recordCount(records.size()) << " to " << path << " (stream version " << streamVersion
              << ")\n";
}

int finishRecords(const NodeList& records, const RecordArgs& args) {
    if (args.toJson.empty() && args.toBin.empty()) printRecords(records);
    if (!args.toJson.empty()) writeJsonRecords(records, args.toJson);
    if (!args.toBin.empty())
        writeNodeRecords(records, args.toBin, args.streamVersion ? args.streamVersion : tovan::DefaultStreamVersion);
    return ExitOk;
}

}  // namespace nvk
