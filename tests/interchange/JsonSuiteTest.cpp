// Every file of the public JSON parsing suite against the committed table of
// outcomes, two per file: read the way `nvk json` reads a file ("accepted N"
// objects, or "rejected MESSAGE"), and scanned and parsed as one value. Every
// y_ file that the reader rejects and every n_ file that it accepts carries a
// reason after " # ".
//
// NVK_WRITE_SUITE_TABLE=1 rewrites the table from what the reader does now,
// keeping the reasons of lines whose outcome did not change.
#include <filesystem>
#include <fstream>
#include <map>

#include "nvk/interchange/CJsonReader.h"
#include "nvk/interchange/JsonParser.h"
#include "tests/support/TestSupport.h"

namespace {

namespace fs = std::filesystem;

// Keeps the table one line per file and readable.
std::string printable(const std::string& message) {
    std::string out;
    for (unsigned char c : message) {
        if (c < 32 || c == 127) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02x", c);
            out += hex;
        } else {
            out += char(c);
        }
    }
    return out;
}

// What the reader makes of the file.
std::string readerOutcome(const fs::path& path) {
    tovan::vcFileInterface file(tovan::toWide(path.string()), tovan::FileMode::Read);
    nvk::CJsonReader reader(&file);
    reader.ResetStream();
    cajun::json::Object object;
    int count = 0;
    try {
        while (reader.ReadNextObject(object)) ++count;
    } catch (const tovan::Exception& e) {
        return "rejected " + printable(tovan::toNarrow(e.getMessage()));
    }
    return "accepted " + std::to_string(count);
}

// The scanner and parser on the whole file as one value, without the
// reader's skipping: this is what checks the grammar of arrays and scalars,
// which the reader treats as text between objects.
std::string valueOutcome(const fs::path& path) {
    using namespace cajun::json;
    tovan::vcFileInterface file(tovan::toWide(path.string()), tovan::FileMode::Read);
    JsonInputStream in(&file);
    try {
        Tokens tokens;
        Scanner().Scan(in, tokens);
        if (tokens.empty()) return "rejected no value";
        Parser parser(tokens);
        Element value;
        parser.ParseValue(value);
        if (parser.Remaining()) return "rejected tokens after the value";
        while (!in.EOS()) {
            tovan::wchar c = in.Get();
            if (c != u' ' && (c < 9 || c > 13)) return "rejected text after the value";
        }
    } catch (const JsonException& e) {
        return "rejected " + printable(tovan::toNarrow(e.getMessage()));
    }
    return "accepted";
}

std::string outcomeOf(const fs::path& path) { return readerOutcome(path) + "\t" + valueOutcome(path); }

struct Row {
    std::string outcome;
    std::string reason;
};

fs::path tablePath() { return nvktest::sourceDir() / "tests/interchange/json_suite_expected.txt"; }

std::map<std::string, Row> readTable() {
    std::map<std::string, Row> rows;
    std::ifstream in(tablePath());
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        size_t tab = line.find('\t');  // name, reader outcome, value outcome
        if (tab == std::string::npos) continue;
        Row row;
        std::string rest = line.substr(tab + 1);
        size_t hash = rest.find(" # ");
        row.outcome = rest.substr(0, hash);
        if (hash != std::string::npos) row.reason = rest.substr(hash + 3);
        rows[line.substr(0, tab)] = row;
    }
    return rows;
}

}  // namespace

TEST(JsonSuite, EveryFileHasItsRecordedOutcome) {
    fs::path dir = nvktest::corpusPath("json/suite");
    SKIP_WITHOUT_CORPUS(dir);
    std::map<std::string, std::string> actual;
    for (const auto& entry : fs::directory_iterator(dir)) {
        std::string name = entry.path().filename().string();
        if (entry.path().extension() != ".json") continue;
        actual[name] = outcomeOf(entry.path());
    }
    ASSERT_GT(actual.size(), 300u);
    std::map<std::string, Row> table = readTable();

    if (std::getenv("NVK_WRITE_SUITE_TABLE")) {
        std::ofstream out(tablePath());
        out << "# file\treader: ResetStream + ReadNextObject until false\tvalue: one value scanned and parsed"
               "  [ # why a y_ file is rejected or an n_ file accepted by the reader]\n";
        for (const auto& [name, outcome] : actual) {
            out << name << '\t' << outcome;
            auto it = table.find(name);
            if (it != table.end() && it->second.outcome == outcome && !it->second.reason.empty())
                out << " # " << it->second.reason;
            out << '\n';
        }
        GTEST_SKIP() << "table rewritten";
    }

    EXPECT_EQ(table.size(), actual.size()) << "files added or removed: rewrite the table";
    for (const auto& [name, outcome] : actual) {
        auto it = table.find(name);
        if (it == table.end()) {
            ADD_FAILURE() << name << " is not in the table";
            continue;
        }
        EXPECT_EQ(outcome, it->second.outcome) << name;
        bool accepted = outcome.rfind("accepted", 0) == 0;  // the reader's column
        bool exception = (name[0] == 'y' && !accepted) || (name[0] == 'n' && accepted);
        if (exception) {
            EXPECT_FALSE(it->second.reason.empty()) << name << ": an exception needs its reason";
        }
    }
}
