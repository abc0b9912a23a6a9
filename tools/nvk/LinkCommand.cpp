// nvk link: the URL that launches a protocol on a server.
#include <algorithm>
#include <iostream>
#include <utility>

#include "nvk/platform/NumberText.h"
#include "nvk/protocol/CProtocolLinkBuilder.h"
#include "tools/nvk/Command.h"

namespace nvk {
namespace {

using tovan::WString;

int runLink(const std::vector<std::string>& args);

const CommandRegistration registration{
    {"link", "print the URL that launches a protocol on a server",
     "nvk link --server URL --protocol ID [--param NAME=VALUE]... [--style N[:VALUE]]\n"
     "                [--run-as user|anonymous|creator] [--session ID] [--progress TEXT] [--array-delim D]\n"
     "  --server      the server's base URL; \"https://\" is put in front unless it begins with \"http\"\n"
     "  --protocol    the protocol's path or identifier (\"\\\" is sent as \"/\"); one that begins with\n"
     "                \"protocols/\" is launched by path, any other through launchjob\n"
     "  --param       a parameter value; a name given more than once (names fold A-Z) is an array,\n"
     "                sent as one pair per element in the order given\n"
     "  --style       how results come back: 1 stream the data (VALUE: its format), 2 stream the data\n"
     "                named VALUE, 3 stream the file VALUE, 4 redirect to the file VALUE, 5 the\n"
     "                protocol's web form (parameters also as one JSON object); default 1\n"
     "  --run-as      user (default: whoever opens the link), anonymous, or creator (the link's\n"
     "                creator, through the registered session given with --session)\n"
     "  --progress    the progress message shown while the job runs\n"
     "  --array-delim the delimiter the server splits array values on\n"
     "  Prints the URL on standard output, names and values percent-encoded as UTF-8. A URL over\n"
     "  2083 characters is still printed (exit status 0), with a warning on standard error that\n"
     "  some browsers may not open it. Exit status 1 when the library refuses (no protocol\n"
     "  identifier; creator without a session), 2 for bad usage.",
     &runLink}};

const Command& self() { return *findCommand("link"); }

bool parseStyle(const std::string& text, CProtocolLinkBuilder::ResultStyle& style, WString& value) {
    size_t colon = text.find(':');
    std::string number = text.substr(0, colon);
    int n = 0;
    if (number.size() != 1 || !tovan::parseInteger(std::string_view(number), n, tovan::NumberSigns::None) || n < 1 ||
        n > 5)
        return false;
    style = CProtocolLinkBuilder::ResultStyle(n);
    value = colon == std::string::npos ? WString::empty() : tovan::toWide(text.substr(colon + 1));
    return true;
}

int runLink(const std::vector<std::string>& args) {
    std::string server, protocol, runAs = "user", session, progress, delimiter;
    bool haveServer = false, haveProtocol = false, haveSession = false;
    CProtocolLinkBuilder::ResultStyle style = CProtocolLinkBuilder::StreamData;
    WString styleValue = WString::empty();
    std::vector<std::pair<WString, std::vector<WString>>> params;  // first-seen order
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& option = args[i];
        if (option != "--server" && option != "--protocol" && option != "--param" && option != "--style" &&
            option != "--run-as" && option != "--session" && option != "--progress" && option != "--array-delim")
            return usageError(self(), "unknown option '" + option + "'");
        if (i + 1 == args.size()) return usageError(self(), option + " needs a value");
        const std::string& value = args[++i];
        if (option == "--server") {
            server = value;
            haveServer = true;
        } else if (option == "--protocol") {
            protocol = value;
            haveProtocol = true;
        } else if (option == "--param") {
            size_t eq = value.find('=');
            if (eq == std::string::npos || eq == 0)
                return usageError(self(), "--param takes NAME=VALUE with a name, not '" + value + "'");
            WString name = tovan::toWide(value.substr(0, eq));
            WString text = tovan::toWide(value.substr(eq + 1));
            auto same = [&](const auto& p) { return tovan::namesEqual(p.first, name); };
            auto it = std::find_if(params.begin(), params.end(), same);
            if (it == params.end())
                params.push_back({name, {text}});
            else
                it->second.push_back(text);
        } else if (option == "--style") {
            if (!parseStyle(value, style, styleValue))
                return usageError(self(), "--style takes 1 to 5, optionally with ':VALUE', not '" + value + "'");
        } else if (option == "--run-as") {
            if (value != "user" && value != "anonymous" && value != "creator")
                return usageError(self(), "--run-as takes user, anonymous or creator, not '" + value + "'");
            runAs = value;
        } else if (option == "--session") {
            session = value;
            haveSession = true;
        } else if (option == "--progress") {
            progress = value;
        } else {
            delimiter = value;
        }
    }
    if (!haveServer || !haveProtocol) return usageError(self(), "--server and --protocol are required");
    if (haveSession && runAs != "creator") return usageError(self(), "--session is only for --run-as creator");

    CProtocolLinkBuilder builder(tovan::toWide(server), tovan::toWide(protocol));
    for (const auto& [name, values] : params) {
        if (values.size() == 1)
            builder.SetParameter(name, values[0]);
        else
            builder.SetParameter(name, values);
    }
    builder.SetResultStyle(style, styleValue);
    builder.SetProgressMessage(tovan::toWide(progress));
    builder.SetArrayDelimiter(tovan::toWide(delimiter));
    if (runAs == "creator")
        builder.SetRunUser(CProtocolLinkBuilder::RunAsCreator, haveSession ? tovan::toWide(session) : WString());
    else
        builder.SetRunUser(runAs == "anonymous" ? CProtocolLinkBuilder::RunAsAnonymous
                                                : CProtocolLinkBuilder::RunAsAuthenticated);
    const WString& link = builder.Construct();
    std::cout << tovan::toNarrow(link) << "\n";
    return ExitOk;
}

}  // namespace
}  // namespace nvk
