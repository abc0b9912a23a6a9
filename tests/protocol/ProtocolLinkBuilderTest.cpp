// Launch links, each read back with libcurl's URL parser: what the server would see must be
// what the builder was asked for.
#include <curl/curl.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "nvk/interchange/CJsonReader.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/FileInterface.h"
#include "nvk/platform/Util.h"
#include "nvk/protocol/CProtocolLinkBuilder.h"
#include "tests/support/TestSupport.h"

using namespace nvk;
using nvktest::utf8;
using tovan::WString;
using B = CProtocolLinkBuilder;
using Query = std::vector<std::pair<std::string, std::string>>;

namespace {

struct ParsedLink {
    std::string where;     // "scheme host path"
    std::string rawQuery;  // as sent
    Query query;           // decoded, in order
};

ParsedLink parse(const WString& link) {
    ParsedLink p;
    CURLU* u = curl_url();
    EXPECT_EQ(curl_url_set(u, CURLUPART_URL, utf8(link).c_str(), 0), CURLUE_OK) << utf8(link);
    auto part = [u](CURLUPart which) {
        char* text = nullptr;
        if (curl_url_get(u, which, &text, 0) != CURLUE_OK) return std::string();
        std::string out = text;
        curl_free(text);
        return out;
    };
    p.where = part(CURLUPART_SCHEME) + " " + part(CURLUPART_HOST) + " " + part(CURLUPART_PATH);
    p.rawQuery = part(CURLUPART_QUERY);
    curl_url_cleanup(u);
    auto unescape = [](const std::string& s) {
        int length = 0;
        char* d = curl_easy_unescape(nullptr, s.c_str(), int(s.size()), &length);
        std::string out(d, size_t(length));
        curl_free(d);
        return out;
    };
    for (size_t start = 0; !p.rawQuery.empty();) {
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

}  // namespace

TEST(ProtocolLinkBuilder, EveryFormReadsBackAsAsked) {
    struct Case {
        const char16_t* base;
        const char16_t* id;
        B::RunAsUser runAs;
        B::ResultStyle style;
        const char16_t* value;
        const char* where;
        std::string rawQuery;  // raw: "?" against "&", and what is encoded
    };
    const std::string tail = "&%24progressmessage=m&%24arraydelim=%2C&A=1&A=2&B=x%20y";
    const std::string creator = "_compat=1&_protocol=Demo%2FFlow&_progressmessage=m&_arraydelim=%2C&A=1&A=2&B=x%20y";
    const Case cases[] = {
        {u"http://host:8080", u"Demo", B::RunAsAuthenticated, B::StreamData, nullptr, "http host /auth/launchjob",
         "$protocol=Demo&%24streamdata=%2A" + tail},
        // The base as given: a slash at its end stays.
        {u"https://host/", u"Demo", B::RunAsAnonymous, B::StreamData, u"json", "https host //auth/anon/launchjob",
         "$protocol=Demo&%24streamdata=%2A&%24format=json" + tail},
        {u"host", u"protocols/My Flows/A b", B::RunAsAuthenticated, B::StreamNamedData, u"Out Data",
         "https host /protocols/protocols/My%20Flows/A%20b", "%24streamdata=Out%20Data" + tail},
        {u"host", u"protocols\\x", B::RunAsAnonymous, B::StreamFile, u"r\u00e9sum\u00e9.pdf",
         "https host /protocols/anon/protocols/x", "%24streamfile=r%C3%A9sum%C3%A9.pdf" + tail},
        {u"host", u"Dir\\P", B::RunAsAuthenticated, B::RedirectFile, u"", "https host /auth/launchjob",
         "$protocol=Dir%2FP&%24redirectfile=" + tail},
        {u"https://host", u"Demo\\Flow", B::RunAsCreator, B::StreamFile, u"S3ss/ion+ID==", "https host /auth/rj/launchjob",
         creator + "&_session=S3ss%2Fion%2BID%3D%3D"},
        {u"host", u"Demo\\Flow", B::RunAsCreator, B::StreamFile, u"", "https host /auth/rj/launchjob",
         creator + "&_session="},  // only a null session is refused
    };
    for (const Case& c : cases) {
        B b(c.base, c.id);
        b.SetParameter(u"A", u"replaced");
        b.SetParameter(u"B", u"x y");
        b.SetParameter(u"a", texts({u"1", u"2"}));  // the same name folded: replaced in place
        b.SetParameter(u"None", std::vector<WString>{});
        b.SetProgressMessage(u"m");
        b.SetArrayDelimiter(u",");
        b.SetResultStyle(B::StreamFile, u"stale");
        if (c.runAs == B::RunAsCreator) {
            b.SetRunUser(B::RunAsCreator, c.value);  // the creator form has no result style
        } else {
            b.SetRunUser(c.runAs);
            b.SetResultStyle(c.style, c.value);
        }
        ParsedLink p = parse(b.Construct());
        EXPECT_EQ(p.where, c.where) << utf8(b.getLink());
        EXPECT_EQ(p.rawQuery, c.rawQuery) << utf8(b.getLink());
    }
    // Running as anyone else forgets the session.
    B b(u"h", u"P");
    b.SetRunUser(B::RunAsCreator, u"sid");
    b.SetRunUser(B::RunAsAuthenticated, u"other");
    EXPECT_EQ(b.getSessionID(), WString(u""));
    EXPECT_EQ(parse(b.Construct()).where, "https h /auth/launchjob");
}

TEST(ProtocolLinkBuilder, WebFormSendsAParametersObject) {
    B b(u"host", u"Folder\\Form \"One\"");
    b.SetResultStyle(B::WebForm, u"ignored");
    b.SetParameter(u"na me&=?/#%+", u"\u00e9t\u00e9 \u20ac\U0001F600 :/?#[]@!$&'()*+,;=%");
    b.SetParameter(u"Quote\"Back\\slash", u"line\nbreak\t\"q\"");
    b.SetParameter(u"List", texts({u"x", u"", u"\u00fc"}));
    b.SetParameter(u"Empty", std::vector<WString>{});
    ParsedLink p = parse(b.Construct());
    EXPECT_EQ(p.where, "https host /webform/");
    ASSERT_EQ(p.query.size(), 9u) << p.rawQuery;
    EXPECT_EQ(p.rawQuery.substr(0, 35), "protocol=Folder%2FForm%20%22One%22&");
    EXPECT_EQ(Query(p.query.begin(), p.query.begin() + 3),
              (Query{{"protocol", "Folder/Form \"One\""}, {"container", "true"}, {"timeout", "600"}}));
    EXPECT_EQ(p.query[3].first, "parameters");
    // Then the parameters follow as pairs, as in every style.
    EXPECT_EQ(p.query[8], (std::pair<std::string, std::string>{"List", "\u00fc"}));

    // The object, read with the library's reader, in the collection's order.
    tovan::vcFileInterface file;
    file.openText(tovan::toWide(p.query[3].second), u"parameters");
    CJsonReader reader(&file);
    reader.ResetStream();
    cajun::json::Object object, expected;
    ASSERT_TRUE(reader.ReadNextObject(object)) << p.query[3].second;
    using cajun::json::String;
    cajun::json::Array list;
    for (const char16_t* item : {u"x", u"", u"\u00fc"}) list.PushBack(String(item));
    expected.Insert(u"na me&=?/#%+", String(u"\u00e9t\u00e9 \u20ac\U0001F600 :/?#[]@!$&'()*+,;=%"));
    expected.Insert(u"Quote\"Back\\slash", String(u"line\nbreak\t\"q\""));
    expected.Insert(u"List", list);
    expected.Insert(u"Empty", cajun::json::Array());
    EXPECT_EQ(object, expected) << p.query[3].second;
}

TEST(ProtocolLinkBuilder, KindsStylesAndNamesBeyondTheFormatAreKeptAsGiven) {
    // Another run-as kind runs as the user who opens the link, another style sends no
    // result parameter, and an empty name is sent as one.
    B b(u"host", u"P");
    b.SetRunUser(B::RunAsCreator, u"sid");
    b.SetRunUser(B::RunAsUser(4), u"s");
    EXPECT_EQ(b.getSessionID(), WString(u""));
    for (int style : {0, 6}) {
        b.SetResultStyle(B::ResultStyle(style), u"v");
        EXPECT_EQ(utf8(b.Construct()), "https://host/auth/launchjob?$protocol=P");
    }
    b.SetParameter(u"", u"v");
    b.SetParameter(u"", texts({u"1", u"2"}));
    EXPECT_EQ(b.getParameters().getSize(), 1);
    EXPECT_EQ(utf8(b.Construct()), "https://host/auth/launchjob?$protocol=P&=1&=2");
    b.SetResultStyle(B::WebForm);
    EXPECT_EQ(parse(b.Construct()).query[3], (std::pair<std::string, std::string>("parameters", R"({"":["1","2"]})")));

    // The identifier is encoded like every query value: left as it is, a "#" in it would
    // end the query there and the job would run without its parameters, and a "&" would
    // cut the name short.
    B hash(u"host", u"Dir\\A&B #1");
    hash.SetParameter(u"x", u"1");
    ParsedLink p = parse(hash.Construct());
    EXPECT_EQ(p.rawQuery, "$protocol=Dir%2FA%26B%20%231&%24streamdata=%2A&x=1");
    EXPECT_EQ(p.query.back(), (std::pair<std::string, std::string>("x", "1")));
}

TEST(ProtocolLinkBuilder, FailuresLeaveTheBuilderAsItWasAndCopiesAreWhole) {
    B b(u"host", u"P");
    b.SetParameter(u"x", u"1");
    b.SetRunUser(B::RunAsAnonymous);
    b.SetResultStyle(B::StreamFile, u"f");
    const WString before = b.Construct();
    EXPECT_THROW_MSG(b.SetRunUser(B::RunAsCreator), tovan::Exception,
                     "A session ID must be registered to run as the protocol link creator");
    EXPECT_EQ(b.getParameters().getSize(), 1);
    EXPECT_EQ(b.Construct(), before);
    for (const WString& id : {WString(), WString::empty()})
        EXPECT_THROW_MSG(B(u"host", id).Construct(), tovan::Exception, "No protocol identifier specified");

    b.SetRunUser(B::RunAsCreator, u"sid");
    const WString link = b.Construct();
    B copy(b), assigned(u"other", u"Q");
    assigned.SetParameter(u"gone", u"1");
    assigned = b;
    for (B* c : {&copy, &assigned}) {
        EXPECT_EQ(c->getLink(), link);
        EXPECT_EQ(c->Construct(), link);
        c->SetParameter(u"x", u"changed");
    }
    EXPECT_EQ(b.Construct(), link);  // the copies' edits never reached the original
}

// Random names and values of every kind of character (reserved, non-ASCII, surrogate pairs,
// empty), single and in arrays, parsed back and compared; and the component encoder against
// libcurl's on the same texts.
TEST(ProtocolLinkBuilder, RandomParametersSurviveTheRoundTrip) {
    std::mt19937 rng(21);
    const std::u16string pool = u"aZ09-_.~ !\"#$%&'()*+,/:;<=>?@[\\]^`{|}\u00a0\u00e9\u0416\u20ac\u4e2d";
    auto randomText = [&](size_t maxLength) {
        std::u16string s;
        for (size_t i = 0, n = rng() % (maxLength + 1); i < n; ++i)
            s += rng() % 10 == 0 ? std::u16string(u"\U0001F600") : std::u16string(1, pool[rng() % pool.size()]);
        return WString(std::move(s));
    };
    for (int round = 0; round < 200; ++round) {
        B b(u"host", WString(u"P").append(randomText(8).view()));
        Query expected = {{"$protocol", utf8(b.getProtocolIdentifier())}, {"$streamdata", "*"}};
        for (int i = 0, n = int(rng() % 6); i < n; ++i) {
            WString name = WString(u"p").append(char16_t(u'0' + i)).append(randomText(6).view());
            std::vector<WString> values;
            for (int k = 0, m = int(rng() % 4); k < m; ++k) values.push_back(randomText(10));
            if (rng() % 3 == 0) {
                b.SetParameter(name, values);
            } else {
                values = {randomText(12)};
                b.SetParameter(name, values[0]);
            }
            for (const WString& v : values) expected.emplace_back(utf8(name), utf8(v));
        }
        const WString& link = b.Construct();
        ASSERT_EQ(parse(link).query, expected) << utf8(link);

        std::string bytes = utf8(randomText(20));
        char* theirs = curl_easy_escape(nullptr, bytes.c_str(), int(bytes.size()));
        EXPECT_EQ(utf8(tovan::util::urlEncodeComponent(tovan::toWide(bytes))), std::string(theirs)) << bytes;
        curl_free(theirs);
    }
}
