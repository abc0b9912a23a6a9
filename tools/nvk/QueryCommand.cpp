// nvk query EXPR FILE... [--json]: runs a path expression on every record of
// JSON files and node files and prints what it selects.
#include <iostream>

#include "nvk/interchange/JsonUtilities.h"
#include "nvk/interchange/NodeTreeText.h"
#include "nvk/platform/CXPathParser.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/FileInterface.h"
#include "nvk/platform/iPropertyCollection.h"
#include "tools/nvk/Command.h"
#include "tools/nvk/RecordIO.h"

namespace nvk {
namespace {

int runQuery(const std::vector<std::string>& args);

const CommandRegistration queryCommand{
    {"query", "run a path expression on every record of JSON or node files; print what it selects",
     "nvk query EXPR FILE... [--json] [--quiet]\n\n"
     "Evaluates the XPath expression EXPR on each record of each FILE, the record's root node being\n"
     "the context and '/'. A FILE is a node file when it starts as one ('nvkb'), else JSON; '-'\n"
     "is standard input. In a record, nodes are elements, properties attributes (@name) and a\n"
     "node's value its text. What the expression gives is printed, record after record:\n"
     "a node as an indented tree, as 'nvk json' prints a record; a property or a node's value as\n"
     "its text, one a line; a string, number or boolean result as its text, one line per record.\n"
     "--json prints each as one JSON value a line instead: a node as the object 'nvk json --to-json'\n"
     "writes, a property as its typed value, a result as a JSON string, number or boolean.\n"
     "Records pass one at a time; progress as for 'nvk json' (--quiet turns it off). '--' ends the\n"
     "options, for an expression that starts with '-'.\n"
     "A bad expression is reported with the evaluator's message and offset, exit 1; a file that\n"
     "cannot be read as 'nvk json' and 'nvk bin' report it, exit 1 after the other files.",
     &runQuery}};

/// One JSON value as a line: the writer takes values only inside a
/// container, so the value is written as a one-element array and unwrapped.
template <class Write>
std::string jsonLine(Write&& write) {
    tovan::vcFileInterface text;
    text.openOutput();
    CJsonWriter* writer = JsonUtilities::CreateJsonWriter(&text);
    try {
        writer->array();
        write(*writer);
        writer->endArray();
    } catch (...) {
        JsonUtilities::DestroyJsonWriter(writer);
        throw;
    }
    JsonUtilities::DestroyJsonWriter(writer);
    const std::string& bytes = text.getOutputBytes();
    return bytes.substr(1, bytes.size() - 2) + "\n";
}

class Printer {
public:
    explicit Printer(bool json) : json_(json) {}

    void print(const tovan::XPathValue& value) {
        switch (value.type) {
        case tovan::XPathType::NodeSet:
            for (const tovan::XPathItem& item : value.nodes) printItem(item);
            return;
        case tovan::XPathType::String: {
            const tovan::WString text(value.text);
            out_ += json_ ? jsonLine([&](CJsonWriter& w) { w.value(text.view(), true); }) : tovan::toNarrow(text) + "\n";
            return;
        }
        case tovan::XPathType::Number:
            out_ += json_ ? jsonLine([&](CJsonWriter& w) { w.value(value.number); })
                          : tovan::toNarrow(tovan::WString(tovan::xpathFormatNumber(value.number))) + "\n";
            return;
        case tovan::XPathType::Boolean: out_ += value.boolean ? "true\n" : "false\n"; return;
        }
    }
    /// Hands what was printed to standard output.
    void flush() {
        std::cout << out_;
        out_.clear();
    }

private:
    void printItem(const tovan::XPathItem& item) {
        const tovan::iNode& node = tovan::CXPathParser::nodeOfItem(item);
        switch (item.kind) {
        case tovan::XPathItemKind::Node:
            out_ += json_ ? jsonLine([&](CJsonWriter& w) { JsonUtilities::AppendElementToArray(w, &node, false, true, false); })
                          : DescribeNodeTree(node, 0);
            return;
        case tovan::XPathItemKind::Attribute: printValue(tovan::CXPathParser::propertyOfItem(item).getValue()); return;
        case tovan::XPathItemKind::Text: printValue(node.getValue()); return;
        }
    }
    void printValue(const tovan::Value& value) {
        out_ += json_ ? jsonLine([&](CJsonWriter& w) { JsonUtilities::WriteValue(w, value); })
                      : tovan::toNarrow(value.toString()) + "\n";
    }

    bool json_;
    std::string out_;
};

int runQuery(const std::vector<std::string>& args) {
    const Command& self = *findCommand("query");
    std::string expression;
    bool haveExpression = false, json = false, quiet = false, optionsEnd = false;
    std::vector<std::string> files;
    for (const std::string& a : args) {
        if (!optionsEnd && a == "--") optionsEnd = true;
        else if (!optionsEnd && a == "--json") json = true;
        else if (!optionsEnd && a == "--quiet") quiet = true;
        else if (!optionsEnd && a.size() > 1 && a[0] == '-') return usageError(self, "unknown option '" + a + "'");
        else if (!haveExpression) expression = a, haveExpression = true;
        else files.push_back(a);
    }
    if (!haveExpression) return usageError(self, "no expression");
    if (files.empty()) return usageError(self, "no input file");
    const tovan::WString expr = tovan::toWide(expression);
    try {
        tovan::XPathExpression check(expr.view());
    } catch (const tovan::BadParameterException& e) {
        std::cerr << "nvk query: " << e.what() << "\n";
        return ExitBadInput;
    }

    tovan::Ptr<tovan::CXPathParser> evaluator(new tovan::CXPathParser());
    Printer printer(json);
    int status = ExitOk;
    for (const std::string& file : files) {
        try {
            RecordReader in(file, RecordReader::Format::ByContent);
            const bool read = forEachRecord(self, in, quiet, true, [&](tovan::iNode& record) {
                evaluator->setContextNode(&record);
                printer.print(evaluator->evaluateValue(expr, tovan::QueryDefault));
                evaluator->setContextNode(nullptr);
                printer.flush();
            });
            if (!read) status = ExitBadInput;
        } catch (const tovan::Exception& e) {
            printer.flush();
            std::cout.flush();
            std::cerr << "nvk query: " << e.what() << "\n";
            status = ExitBadInput;
        }
    }
    return status;
}

}  // namespace
}  // namespace nvk
