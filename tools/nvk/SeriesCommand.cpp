// nvk series parse|make: series parameter names ("Item 7 extra").
#include <iostream>

#include "nvk/interchange/CJsonWriter.h"
#include "nvk/platform/NumberText.h"
#include "nvk/protocol/CPropertyUtils.h"
#include "tools/nvk/Command.h"

namespace nvk {
namespace {

using tovan::WString;

int runSeries(const std::vector<std::string>& args);

const CommandRegistration registration{
    {"series", "split a series parameter name into prefix, index and suffix, or make one",
     "nvk series parse NAME [--json]\n"
     "       nvk series make PREFIX INDEX [SUFFIX]\n"
     "  A series name is a prefix, whitespace, a decimal index and optionally a suffix; the last\n"
     "  number that directly follows whitespace (tab, line feed, carriage return, space or no-break\n"
     "  space) is the index, so \"Step 12 of 3\" is \"Step 12 of\", 3 and \"Step 3b\" has suffix \"b\";\n"
     "  without such a number, a name that begins with a number and whitespace takes that number\n"
     "  as prefix and index (\"7 x\" is \"7\", 7, suffix \"x\").\n"
     "  parse prints 'prefix: P', 'index: N' and 'suffix: S' on three lines, or with --json one object\n"
     "  {\"prefix\": P, \"index\": N, \"suffix\": S}; a name that is not a series name is reported on\n"
     "  standard error with exit status 1.\n"
     "  make prints \"PREFIX INDEX\", or \"PREFIX INDEX SUFFIX\" when a suffix is given (INDEX: a 32-bit\n"
     "  integer).",
     &runSeries}};

const Command& self() { return *findCommand("series"); }

int runParse(const std::vector<std::string>& args) {
    bool json = args.size() == 3 && args[2] == "--json";
    if (args.size() != 2 && !json) return usageError(self(), "parse takes one NAME and optionally --json");
    WString prefix, suffix;
    int index = -1;
    if (!CPropertyUtils::parseSeriesParameterName(tovan::toWide(args[1]), prefix, index, suffix)) {
        std::cerr << "nvk series: '" << args[1] << "' is not a series parameter name\n";
        return ExitBadInput;
    }
    if (json) {
        JsonStringSink sink;
        CJsonWriter w(&sink);
        w.object().key(u"prefix").value(prefix.view()).key(u"index").value(index).key(u"suffix").value(suffix.view());
        w.endObject();
        std::cout << tovan::toNarrow(WString(sink.text())) << "\n";
    } else {
        std::cout << "prefix: " << tovan::toNarrow(prefix) << "\nindex: " << index
                  << "\nsuffix: " << tovan::toNarrow(suffix) << "\n";
    }
    return ExitOk;
}

int runMake(const std::vector<std::string>& args) {
    if (args.size() != 3 && args.size() != 4) return usageError(self(), "make takes PREFIX INDEX [SUFFIX]");
    const std::string& text = args[2];
    int index = 0;
    if (!tovan::parseInteger(std::string_view(text), index))
        return usageError(self(), "INDEX must be a 32-bit integer, not '" + text + "'");
    WString suffix = args.size() == 4 ? tovan::toWide(args[3]) : WString::empty();
    std::cout << tovan::toNarrow(CPropertyUtils::createSeriesParameterName(tovan::toWide(args[1]), index, suffix)) << "\n";
    return ExitOk;
}

int runSeries(const std::vector<std::string>& args) {
    return runSubcommand(self(), args, {{"parse", &runParse}, {"make", &runMake}});
}

}  // namespace
}  // namespace nvk
