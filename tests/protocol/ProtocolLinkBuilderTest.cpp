// Launch links, each read back with libcurl's URL parser: what the server would see must be
// what the builder was asked for.
#include <curl/curl.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "nvk/platform/ArrayValue.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/Util.h"
#include "nvk/protocol/CProtocolLinkBuilder.h"
#include "tests/support/TestSupport.h"

using namespace nvk;
using nvktest::utf8;
using tovan::WString;
using Query = std::vector<std::pair<std::string, std::string>>;

namespace {

struct ParsedLink {
    std::string scheme, host, port, path, rawQuery;
    Query query;  // decoded, in order
};

std::string unescape(const std::string& s) {
    int length = 0;
    char* d = curl_easy_unescape(nullptr, s.c_str(), int(s.size()), &length);
    std::string out(d, size_t(length));
    curl_free(d);
    return out;
}

std::string part(CURLU* u, CURLUPart which) {
    char* text = nullptr;
    if (curl_url_get(u, which, &text, 0) != CURLUE_OK) return "";
    std::string out = text;
    curl_free(text);
    return out;
}

ParsedLink parse(const WString& link) {
    ParsedLink p;
    CURLU* u = curl_url();
    CURLUcode rc = curl_url_set(u, CURLUPART_URL, utf8(link).c_str(), 0);
    EXPECT_EQ(rc, CURLUE_OK) << utf8(link);
    p.scheme = part(u, CURLUPART_SCHEME);
    p.host = part(u, CURLUPART_HOST);
    p.port = part(u, CURLUPART_PORT);
    p.path = part(u, CURLUPART_PATH);
    p.rawQuery = part(u, CURLUPART_QUERY);
    curl_url_cleanup(u);
    for (size_t start = 0; start <= p.rawQuery.size() && !p.rawQuery.empty();) {
        size_t amp = p.rawQuery.find('&', start);
        std::string pair = p.rawQuery.substr(start, amp == std::string::npos ? std::string::npos : amp - start);
        size_t eq = pair.find('=');
        EXPECT_NE(eq, std::string::npos) << "pair without '=': " << pair;
        p.query.emplace_back(unescape(pair.substr(0, eq)), unescape(eq == std::string::npos ? "" : pair.substr(eq + 1)));
        if (amp == std::string::npos) break;
        start = amp + 1;
    }
    return p;
}

std::vector<WString> texts(std::initializer_list<const char16_t*> list) { return {list.begin(), list.end()}; }

// Names and values a server must get back exactly: non-ASCII (with a surrogate pair),
// every reserved character, a space, a plus, a percent, an empty value.
const WString kAwkwardName = u"na me&=?/#%+";
const WString kAwkwardValue = u"\u00e9t\u00e9 \u20ac\U0001F600 :/?#[]@!$&'()*+,;=%";

}  // namespace

TEST(ProtocolLinkBuilder, LaunchLinkCarriesEveryParameterAsAsked) {
    CProtocolLinkBuilder b(u"server.example:9943", u"Protocols\\Web Services\\Score");
    EXPECT_EQ(b.getProtocolIdentifier(), WString(u"Protocols/Web Services/Score"));
    b.SetParameter(u"Threshold", u"0.5");
    b.SetParameter(kAwkwardName, kAwkwardValue);
    b.SetParameter(u"Empty", WString::empty());
    b.SetParameter(u"Tags", texts({u"a", u"", u"c&d"}));
    b.SetParameter(u"None", std::vector<WString>{});
    b.SetParameter(u"threshold", u"0.75");  // same name folded: replaced in place
    b.SetParameter(u"/Path/like", u"v");     // no hierarchical lookup in a builder
    b.SetProgressMessage(u"Scoring\u2026 50%");
    b.SetArrayDelimiter(u",");
    ParsedLink p = parse(b.Construct());
    EXPECT_EQ(p.scheme, "https");
    EXPECT_EQ(p.host, "server.example");
    EXPECT_EQ(p.port, "9943");
    EXPECT_EQ(p.path, "/auth/launchjob");
    Query expected = {{"$protocol", "Protocols/Web Services/Score"},
                      {"$streamdata", "*"},
                      {"$progressmessage", "Scoring\u2026 50%"},
                      {"$arraydelim", ","},
                      {"Threshold", "0.75"},
                      {utf8(kAwkwardName), utf8(kAwkwardValue)},
                      {"Empty", ""},
                      {"Tags", "a"},
                      {"Tags", ""},
                      {"Tags", "c&d"},
                      {"/Path/like", "v"}};
    EXPECT_EQ(p.query, expected);
    // "?" only once, before the identifier; "$protocol=" is sent as it is, the rest encoded.
    EXPECT_EQ(p.rawQuery.substr(0, 54), "$protocol=Protocols%2FWeb%20Services%2FScore&%24stream");
    EXPECT_EQ(b.getLink().find(u'?'), b.getLink().rfind(u'?'));
}

TEST(ProtocolLinkBuilder, SchemeBaseAndPathForms) {
    struct Case {
        const char16_t* base;
        const char16_t* id;
        CProtocolLinkBuilder::RunAsUser runAs;
        const char* scheme;
        const char* path;
        const char* firstQuery;  // raw, to see "?" against "&"
    };
    const Case cases[] = {
        {u"http://host:8080", u"Demo", CProtocolLinkBuilder::RunAsAuthenticated, "http", "/auth/launchjob",
         "$protocol=Demo&%24streamdata=%2A"},
        {u"https://host//", u"Demo", CProtocolLinkBuilder::RunAsAnonymous, "https", "/auth/anon/launchjob",
         "$protocol=Demo&%24streamdata=%2A"},
        {u"host", u"protocols/My Flows/A b", CProtocolLinkBuilder::RunAsAuthenticated, "https",
         "/protocols/protocols/My%20Flows/A%20b", "%24streamdata=%2A"},
        {u"host", u"protocols\\x", CProtocolLinkBuilder::RunAsAnonymous, "https", "/protocols/anon/protocols/x",
         "%24streamdata=%2A"},
    };
    for (const Case& c : cases) {
        CProtocolLinkBuilder b(c.base, c.id);
        b.SetRunUser(c.runAs);
        const WString& link = b.Construct();
        ParsedLink p = parse(link);
        EXPECT_EQ(p.scheme, c.scheme) << utf8(link);
        EXPECT_EQ(p.host, "host") << utf8(link);
        EXPECT_EQ(p.path, c.path) << utf8(link);
        EXPECT_EQ(p.rawQuery, c.firstQuery) << utf8(link);
        EXPECT_EQ(link.find(u"//", 8), std::u16string::npos) << utf8(link);
    }
}

TEST(ProtocolLinkBuilder, ResultStyles) {
    using B = CProtocolLinkBuilder;
    struct Case {
        B::ResultStyle style;
        const char16_t* value;
        Query result;
    };
    const Case cases[] = {
        {B::StreamData, nullptr, {{"$streamdata", "*"}}},
        {B::StreamData, u"", {{"$streamdata", "*"}}},
        {B::StreamData, u"json", {{"$streamdata", "*"}, {"$format", "json"}}},
        {B::StreamNamedData, u"Out Data", {{"$streamdata", "Out Data"}}},
        {B::StreamFile, u"r\u00e9sum\u00e9.pdf", {{"$streamfile", "r\u00e9sum\u00e9.pdf"}}},
        {B::RedirectFile, u"a/b.html", {{"$redirectfile", "a/b.html"}}},
        {B::RedirectFile, nullptr, {{"$redirectfile", ""}}},
    };
    for (const Case& c : cases) {
        B b(u"h", u"P");
        b.SetResultStyle(B::StreamFile, u"stale");
        b.SetResultStyle(c.style, c.value);
        EXPECT_EQ(b.getResultStyleValue(), WString(c.value ? c.value : u""));
        Query expected = {{"$protocol", "P"}};
        expected.insert(expected.end(), c.result.begin(), c.result.end());
        EXPECT_EQ(parse(b.Construct()).query, expected) << int(c.style);
    }
}

TEST(ProtocolLinkBuilder, WebFormSendsAParametersObject) {
    CProtocolLinkBuilder b(u"host", u"Folder\\Form \"One\"");
    b.SetResultStyle(CProtocolLinkBuilder::WebForm, u"ignored");
    b.SetParameter(kAwkwardName, kAwkwardValue);
    b.SetParameter(u"Quote\"Back\\slash", u"line\nbreak\t\"q\"");
    b.SetParameter(u"List", texts({u"x", u"", u"\u00fc"}));
    b.SetParameter(u"Empty", std::vector<WString>{});
    ParsedLink p = parse(b.Construct());
    EXPECT_EQ(p.path, "/webform/");
    ASSERT_GE(p.query.size(), 4u);
    EXPECT_EQ(p.rawQuery.substr(0, 35), "protocol=Folder%2FForm%20%22One%22&");
    Query head(p.query.begin(), p.query.begin() + 3);
    EXPECT_EQ(head, (Query{{"protocol", "Folder/Form \"One\""}, {"container", "true"}, {"timeout", "600"}}));
    EXPECT_EQ(p.query[3].first, "parameters");
    nlohmann::ordered_json object = nlohmann::ordered_json::parse(p.query[3].second);
    nlohmann::ordered_json expected = {{utf8(kAwkwardName), utf8(kAwkwardValue)},
                               {"Quote\"Back\\slash", "line\nbreak\t\"q\""},
                               {"List", {"x", "", "\u00fc"}},
                               {"Empty", nlohmann::ordered_json::array()}};
    EXPECT_EQ(object, expected);
    // The object keeps the collection's order.
    EXPECT_EQ(object.begin().key(), utf8(kAwkwardName));
    // Then the parameters follow as pairs, as in every style.
    Query tail(p.query.begin() + 4, p.query.end());
    EXPECT_EQ(tail, (Query{{utf8(kAwkwardName), utf8(kAwkwardValue)},
                           {"Quote\"Back\\slash", "line\nbreak\t\"q\""},
                           {"List", "x"},
                           {"List", ""},
                           {"List", "\u00fc"}}));
}

TEST(ProtocolLinkBuilder, RunAsCreator) {
    CProtocolLinkBuilder b(u"https://host", u"Demo\\Flow");
    b.SetResultStyle(CProtocolLinkBuilder::StreamFile, u"not used by this form");
    b.SetProgressMessage(u"wait");
    b.SetArrayDelimiter(u"|");
    b.SetParameter(u"A", texts({u"1", u"2"}));
    b.SetParameter(u"B", u"x y");
    b.SetRunUser(CProtocolLinkBuilder::RunAsCreator, u"S3ss/ion+ID==");
    EXPECT_EQ(b.getSessionID(), WString(u"S3ss/ion+ID=="));
    ParsedLink p = parse(b.Construct());
    EXPECT_EQ(p.path, "/auth/rj/launchjob");
    EXPECT_EQ(p.query, (Query{{"_compat", "1"},
                              {"_protocol", "Demo/Flow"},
                              {"_progressmessage", "wait"},
                              {"_arraydelim", "|"},
                              {"A", "1"},
                              {"A", "2"},
                              {"B", "x y"},
                              {"_session", "S3ss/ion+ID=="}}));
    // Running as anyone else forgets the session.
    b.SetRunUser(CProtocolLinkBuilder::RunAsAuthenticated, u"other");
    EXPECT_EQ(b.getSessionID(), WString(u""));
    EXPECT_EQ(parse(b.Construct()).path, "/auth/launchjob");
}

TEST(ProtocolLinkBuilder, FailuresLeaveTheBuilderAsItWas) {
    CProtocolLinkBuilder b(u"host", u"P");
    b.SetParameter(u"x", u"1");
    b.SetRunUser(CProtocolLinkBuilder::RunAsAnonymous);
    b.SetResultStyle(CProtocolLinkBuilder::StreamFile, u"f");
    const WString before = b.Construct();
    auto unchanged = [&] {
        EXPECT_EQ(b.getRunUser(), CProtocolLinkBuilder::RunAsAnonymous);
        EXPECT_EQ(b.getSessionID(), WString(u""));
        EXPECT_EQ(b.getResultStyle(), CProtocolLinkBuilder::StreamFile);
        EXPECT_EQ(b.getResultStyleValue(), WString(u"f"));
        EXPECT_EQ(b.getLink(), before);
        EXPECT_EQ(b.Construct(), before);
    };
    const char* noSession = "A session ID must be registered to run as the protocol link creator";
    EXPECT_THROW_MSG(b.SetRunUser(CProtocolLinkBuilder::RunAsCreator), tovan::Exception, noSession);
    EXPECT_THROW_MSG(b.SetRunUser(CProtocolLinkBuilder::RunAsCreator, WString::empty()), tovan::Exception, noSession);
    EXPECT_THROW_MSG(b.SetRunUser(CProtocolLinkBuilder::RunAsUser(4), u"s"), tovan::BadParameterException,
                     "Unknown run-as kind 4");
    EXPECT_THROW_MSG(b.SetResultStyle(CProtocolLinkBuilder::ResultStyle(0), u"v"), tovan::BadParameterException,
                     "Unknown result style 0");
    EXPECT_THROW_MSG(b.SetResultStyle(CProtocolLinkBuilder::ResultStyle(6)), tovan::BadParameterException,
                     "Unknown result style 6");
    EXPECT_THROW_MSG(b.SetParameter(WString(), u"v"), tovan::BadParameterException, "A parameter needs a name");
    EXPECT_THROW_MSG(b.SetParameter(u"", std::vector<WString>{u"v"}), tovan::BadParameterException,
                     "A parameter needs a name");
    EXPECT_EQ(b.getParameters().getSize(), 1);
    unchanged();

    for (const WString& id : {WString(), WString::empty()}) {
        CProtocolLinkBuilder none(u"host", id);
        none.SetParameter(u"x", u"1");
        EXPECT_THROW_MSG(none.Construct(), tovan::Exception, "No protocol identifier specified");
        EXPECT_EQ(none.getLink(), WString(u""));
        EXPECT_EQ(none.getParameters().getSize(), 1);
    }
    try {
        CProtocolLinkBuilder(u"h", u"").Construct();
    } catch (const tovan::Exception& e) {
        EXPECT_EQ(e.getClassName(), "CProtocolLinkBuilder");
        EXPECT_EQ(e.getOperation(), "Construct");
    }
}

TEST(ProtocolLinkBuilder, CopiesAreWholeAndIndependent) {
    CProtocolLinkBuilder a(u"host", u"P");
    a.SetParameter(u"x", texts({u"1", u"2"}));
    a.SetRunUser(CProtocolLinkBuilder::RunAsCreator, u"sid");
    a.SetResultStyle(CProtocolLinkBuilder::StreamNamedData, u"d");
    a.SetProgressMessage(u"m");
    a.SetArrayDelimiter(u";");
    const WString link = a.Construct();
    CProtocolLinkBuilder copy(a);
    CProtocolLinkBuilder assigned(u"other", u"Q");
    assigned.SetParameter(u"gone", u"1");
    assigned = a;
    for (CProtocolLinkBuilder* b : {&copy, &assigned}) {
        EXPECT_EQ(b->getServerBase(), WString(u"host"));
        EXPECT_EQ(b->getSessionID(), WString(u"sid"));
        EXPECT_EQ(b->getResultStyle(), CProtocolLinkBuilder::StreamNamedData);
        EXPECT_EQ(b->getResultStyleValue(), WString(u"d"));
        EXPECT_EQ(b->getProgressMessage(), WString(u"m"));
        EXPECT_EQ(b->getArrayDelimiter(), WString(u";"));
        EXPECT_EQ(b->getLink(), link);
        EXPECT_EQ(b->Construct(), link);
        b->SetParameter(u"x", u"changed");
    }
    assigned = assigned;  // self-assignment keeps everything
    EXPECT_EQ(assigned.getParameters().getSize(), 1);
    EXPECT_EQ(a.Construct(), link);  // the copies' edits never reached the original
}

TEST(ProtocolLinkBuilder, LengthWarningEdge) {
    for (size_t length : {size_t(2082), size_t(2083), size_t(2084), size_t(3000)}) {
        CProtocolLinkBuilder b(u"host", u"P");
        b.SetParameter(u"v", WString::empty());
        const size_t bare = b.Construct().length();
        b.SetParameter(u"v", WString(std::u16string(length - bare, u'a')));
        tovan::DiagnosticCapture capture;
        ASSERT_EQ(b.Construct().length(), length);
        std::vector<std::string> expected;
        if (length > 2083)
            expected.push_back("The length of the generated protocol link exceeds 2083 characters, and so may not work "
                               "in Internet Explorer.");
        EXPECT_EQ(capture.warnings(), expected) << length;
    }
}

// Random names and values of every kind of character, parsed back and compared; and the
// component encoder against libcurl's on the same texts.
TEST(ProtocolLinkBuilder, RandomParametersSurviveTheRoundTrip) {
    std::mt19937 rng(21);
    const std::u16string pool = u"aZ09-_.~ !\"#$%&'()*+,/:;<=>?@[\\]^`{|}\u00a0\u00e9\u0416\u20ac\u4e2d";
    auto randomText = [&](size_t maxLength) {
        std::u16string s;
        size_t n = rng() % (maxLength + 1);
        for (size_t i = 0; i < n; ++i) {
            if (rng() % 10 == 0) {
                s += u"\U0001F600";
            } else {
                s += pool[rng() % pool.size()];
            }
        }
        return WString(std::move(s));
    };
    for (int round = 0; round < 200; ++round) {
        CProtocolLinkBuilder b(u"host", WString(u"P").append(randomText(8).view()));
        Query expected = {{"$protocol", utf8(b.getProtocolIdentifier())}, {"$streamdata", "*"}};
        for (int i = 0, n = int(rng() % 6); i < n; ++i) {
            WString name = WString(u"p").append(char16_t(u'0' + i)).append(randomText(6).view());
            if (rng() % 3 == 0) {
                std::vector<WString> values;
                for (int k = 0, m = int(rng() % 4); k < m; ++k) values.push_back(randomText(10));
                b.SetParameter(name, values);
                for (const WString& v : values) expected.emplace_back(utf8(name), utf8(v));
            } else {
                WString value = randomText(12);
                b.SetParameter(name, value);
                expected.emplace_back(utf8(name), utf8(value));
            }
        }
        const WString& link = b.Construct();
        ASSERT_EQ(parse(link).query, expected) << utf8(link);

        std::string bytes = utf8(randomText(20));
        char* theirs = curl_easy_escape(nullptr, bytes.c_str(), int(bytes.size()));
        EXPECT_EQ(utf8(tovan::util::urlEncodeComponent(WString(tovan::toWide(bytes)))), std::string(theirs)) << bytes;
        curl_free(theirs);
    }
}
