// nvk json FILE [--to-json OUT]: reads every JSON record of a file as data
// nodes, and prints them or writes them back as JSON.
#include <iostream>
#include <string>
#include <vector>

#include "interchange/CJsonReader.h"
#include "interchange/JsonUtilities.h"
#include "interchange/NodeTreeText.h"
#include "platform/Exception.h"
#include "platform/FileInterface.h"
#include "tools/nvk/Command.h"

namespace nvk {
namespace {

int runJson(const std::vector<std::string>& args);

const CommandRegistration jsonCommand{
    {"json", "read JSON records as data trees; print them or write them back as JSON",
     "nvk json FILE [--to-json OUT]\n\n"
     "Reads every record (top-level object) of FILE; text between records is skipped, and a file\n"
     "that is a bare list of members is read as one object. Without options each record is printed\n"
     "as an indented tree: node names, and under each node its properties as NAME: TYPE = VALUE.\n"
     "--to-json OUT writes the records to OUT as one JSON array of objects, one per line.\n"
     "A file that cannot be read is reported as FILE:LINE:COLUMN: MESSAGE (counted from 1), exit 1.",
     &runJson}};

using Record = tovan::Array<tovan::Ptr<tovan::iNode>>;

int fail(const std::string& file, const CJsonReader& reader, const tovan::Exception& e) {
    cajun::json::Location at = reader.GetErrorLocation();
    std::cerr << "nvk json: " << file << ":" << at.line + 1 << ":" << at.column + 1 << ": " << e.what() << "\n";
    return ExitBadInput;
}

int runJson(const std::vector<std::string>& args) {
    const Command& self = *findCommand("json");
    std::string input, output;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--to-json") {
            if (i + 1 >= args.size()) return usageError(self, "--to-json needs an output file");
            output = args[++i];
        } else if (args[i].size() > 1 && args[i][0] == '-') {
            return usageError(self, "unknown option '" + args[i] + "'");
        } else if (input.empty()) {
            input = args[i];
        } else {
            return usageError(self, "only one input file");
        }
    }
    if (input.empty()) return usageError(self, "no input file");

    tovan::vcFileInterface file(tovan::toWide(input), tovan::FileMode::Read);
    CJsonReader reader(&file);
    std::vector<Record> records;
    try {
        reader.ResetStream();
        Record nodes;
        while (reader.ReadNextObject(nodes)) {
            records.push_back(std::move(nodes));
            nodes = Record();
        }
    } catch (const tovan::Exception& e) {
        return fail(input, reader, e);
    }

    if (output.empty()) {
        for (size_t r = 0; r < records.size(); ++r) {
            std::cout << "record " << r + 1 << "\n";
            for (const auto& node : records[r]) std::cout << DescribeNodeTree(*node, 1);
        }
        return ExitOk;
    }

    tovan::vcFileInterface out(tovan::toWide(output), tovan::FileMode::Write);
    CJsonWriter* writer = JsonUtilities::CreateJsonWriter(&out);
    try {
        writer->array();
        for (const Record& record : records)
            for (const auto& node : record) JsonUtilities::AppendElementToArray(*writer, node.get(), true, true, false);
        writer->endArray();
        JsonUtilities::DestroyJsonWriter(writer);
    } catch (...) {
        JsonUtilities::DestroyJsonWriter(writer);
        throw;
    }
    out.writeChar(u'\n');
    out.close();
    std::cout << "wrote " << records.size() << " record" << (records.size() == 1 ? "" : "s") << " to " << output << "\n";
    return ExitOk;
}

}  // namespace
}  // namespace nvk
