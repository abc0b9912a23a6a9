// nvk credentials new|show: make a credentials string, or show what one holds.
#include <ctime>
#include <iostream>

#include "nvk/platform/Format.h"
#include "nvk/platform/NumberText.h"
#include "nvk/platform/Object.h"
#include "nvk/services/CCredentials.h"
#include "tools/nvk/Command.h"

namespace nvk {
namespace {

using tovan::Ptr;

int runCredentials(const std::vector<std::string>& args);

const CommandRegistration registration{
    {"credentials", "make a credentials string, or show the fields one holds",
     "nvk credentials new --user USER [--domain DOMAIN] [--password PASSWORD] [--role ROLE]... [--flags BODYFLAGS]\n"
     "       nvk credentials show STRING\n"
     "  new prints a fresh string; roles get bits 0, 1, ... in the order given and the login time is now.\n"
     "  show prints the decoded fields (the password masked), or the exact decoding error.",
     &runCredentials}};

const Command& self() { return *findCommand("credentials"); }

/// Decimal, or hexadecimal after "0x"; the whole text must be a number below 2^32.
bool parseFlags(const std::string& text, uint32_t& out) {
    const bool hex = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0;
    return tovan::parseInteger(std::string_view(text).substr(hex ? 2 : 0), out, tovan::NumberSigns::None,
                               hex ? 16 : 10);
}

int runNew(const std::vector<std::string>& args) {
    Ptr<CCredentials> c(CCredentials::newInstance());
    Ptr<CAuthRolesCache> table(new CAuthRolesCache());
    std::vector<tovan::WString> roles;
    bool haveUser = false;
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string& option = args[i];
        if (option != "--user" && option != "--domain" && option != "--password" && option != "--role" &&
            option != "--flags")
            return usageError(self(), "unknown option '" + option + "'");
        if (i + 1 == args.size()) return usageError(self(), option + " needs a value");
        const std::string& value = args[++i];
        if (option == "--user") {
            c->SetUsername(tovan::toWide(value));
            haveUser = true;
        } else if (option == "--domain") {
            c->SetDomain(tovan::toWide(value));
        } else if (option == "--password") {
            c->SetPassword(tovan::toWide(value));
        } else if (option == "--role") {
            tovan::WString role = tovan::toWide(value);
            if (table->GetBit(role) == CAuthRolesCache::NoBit) table->SetRole(uint32_t(roles.size()), role);
            roles.push_back(role);
        } else {
            uint32_t flags;
            if (!parseFlags(value, flags))
                return usageError(self(), "--flags takes a number below 2^32 (decimal or 0x hex), not '" + value + "'");
            c->SetBodyFlags(flags);
        }
    }
    if (!haveUser) return usageError(self(), "new needs --user");
    c->SetRolesCache(table.get());
    c->GetRoles().SetRoles(roles);
    c->SetLoginTime(int64_t(std::time(nullptr)));
    tovan::WString out;
    c->GenerateCredentialsString(out);
    std::cout << tovan::toNarrow(out) << "\n";
    return ExitOk;
}

std::string dotted(uint32_t ip) {
    return tovan::integerText(ip & 0xFF) + "." + tovan::integerText((ip >> 8) & 0xFF) + "." +
           tovan::integerText((ip >> 16) & 0xFF) + "." + tovan::integerText(ip >> 24);
}

std::string hex32(uint32_t v) { return tovan::toNarrow(tovan::format(u"0x%08X", v)); }

int runShow(const std::vector<std::string>& args) {
    if (args.size() != 2) return usageError(self(), "show takes exactly one credentials string");
    Ptr<CCredentials> c(CCredentials::newInstance());
    c->SetCredentialsString(tovan::toWide(args[1]));
    c->DecryptBody(true);
    auto line = [](const char* label, const std::string& value) { std::cout << label << ": " << value << "\n"; };
    auto text = [&](const char* label, const tovan::WString& value) { line(label, tovan::toNarrow(value)); };
    line("format version", tovan::integerText(c->GetFormatVersionNumber()));
    line("random number", tovan::integerText(c->GetRandomNumberRaw()));
    line("session key form", c->IsSessionKey() ? "yes (read-only)" : "no");
    line("header flags", hex32(c->GetHeaderFlags()));
    line("body flags", hex32(c->GetBodyFlags()));
    line("server IP", dotted(c->GetServerIP()));
    line("client IP", dotted(c->GetClientIP()));
    line("login time", tovan::integerText(c->GetLoginTime()));
    text("user", c->GetUsername());
    line("password", c->GetPassword().isEmpty() ? "" : "********");
    text("client description", c->GetClientDescription());
    text("client machine name", c->GetClientMachineName());
    text("client version", c->GetClientVersion());
    text("domain", c->GetDomain());
    text("XMLDB endpoint", c->GetXMLDBEndPoint());
    text("log endpoint", c->GetLogEndPoint());
    text("locator endpoint", c->GetLocatorEndPoint());
    text("role bits", c->GetRoles()._GetRawRoleBits().toString());
    text("access token", c->GetAccessToken());
    text("refresh token", c->GetRefreshToken());
    return ExitOk;
}

int runCredentials(const std::vector<std::string>& args) {
    return runSubcommand(self(), args, {{"new", &runNew}, {"show", &runShow}});
}

}  // namespace
}  // namespace nvk
