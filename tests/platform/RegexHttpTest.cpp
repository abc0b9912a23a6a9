#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "nvk/platform/Http.h"
#include "nvk/platform/Regex.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using nvktest::utf8;

namespace {

std::vector<std::string> narrow(const Array<WString>& groups) {
    std::vector<std::string> out;
    for (const WString& g : groups) out.push_back(g.isNull() ? "<null>" : utf8(g));
    return out;
}

}  // namespace

TEST(Regex, SevenGroupsOfNonBlankCharacters) {
    vcRegex re(u"([^\\s]+) ([^\\s]+) ([^\\s]+) ([^\\s]+) ([^\\s]+) ([^\\s]+) ([^\\s]+)");
    EXPECT_EQ(re.getGroupCount(), 7);
    Array<WString> groups;
    ASSERT_TRUE(re.search(u"0 30 2 * * ? *", &groups));
    EXPECT_EQ(narrow(groups), (std::vector<std::string>{"0 30 2 * * ? *", "0", "30", "2", "*", "*", "?", "*"}));
    // A search, not a whole-text match: an eighth field is left out, and text
    // before the first field is skipped. Two blanks between fields break the run.
    ASSERT_TRUE(re.search(u"x 1 2 3 4 5 6 7", &groups));
    EXPECT_EQ(utf8(groups[1]), "x");
    EXPECT_EQ(utf8(groups[0]), "x 1 2 3 4 5 6");
    EXPECT_FALSE(re.search(u"0 30  2 * * ? *", &groups));
    EXPECT_EQ(utf8(groups[1]), "x") << "a failed search leaves the groups alone";
    EXPECT_FALSE(re.search(u"0 30 2 * * ?"));
    // Wide text beyond the BMP is searched as it is.
    ASSERT_TRUE(re.search(u"\u00e9 \U0001F600 3 4 5 6 7", &groups));
    EXPECT_EQ(utf8(groups[2]), "\xF0\x9F\x98\x80");
    // Half of a surrogate pair matches nothing; the text before it is searched.
    WString half(std::u16string(u"0 30 2 * * ? *") + char16_t(0xD800));
    ASSERT_TRUE(re.search(half, &groups));
    EXPECT_EQ(utf8(groups[0]), "0 30 2 * * ? *");
    EXPECT_FALSE(vcRegex(u"^.+$").search(half));
}

TEST(Regex, UnsetGroupsAndReuseAcrossThreads) {
    vcRegex re(u"(a)|(b)");
    Array<WString> groups;
    ASSERT_TRUE(re.search(u"b", &groups));
    EXPECT_EQ(narrow(groups), (std::vector<std::string>{"b", "<null>", "b"}));
    // One compiled expression searched from several threads at once.
    vcRegex digits(u"^(\\d+)-(\\d+)$");
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 2000; ++i) {
                Array<WString> g;
                std::string text = std::to_string(t) + "-" + std::to_string(i);
                if (!digits.search(toWide(text), &g) || utf8(g[2]) != std::to_string(i)) ++wrong;
            }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(wrong.load(), 0);
}

TEST(Regex, Failures) {
    vcRegex re;
    EXPECT_FALSE(re.hasExpression());
    EXPECT_TRUE(re.getExpression().isNull());
    EXPECT_THROW_MSG(re.search(u"x"), Exception, "No regular expression to search with");
    re.setExpression(u"a+");
    EXPECT_THROW_MSG(re.setExpression(u"(a"), BadParameterException,
                     "Invalid regular expression \"(a\" at offset 2: missing closing parenthesis");
    EXPECT_EQ(utf8(re.getExpression()), "a+") << "a refused expression keeps the one before";
    EXPECT_TRUE(re.search(u"baa"));
}

namespace {

// A real server on loopback whose handlers record what the client sent.
struct HttpFixture : ::testing::Test {
    httplib::Server server;
    std::string seenSession, seenBody, seenType;
    void SetUp() override {
        server.Get("/hello", [this](const httplib::Request& req, httplib::Response& res) {
            seenSession = req.get_header_value("X-NVK-Session");
            res.set_content("h\xC3\xA9llo", "text/plain");
        });
        server.Post("/form", [this](const httplib::Request& req, httplib::Response& res) {
            seenBody = req.body;
            seenType = req.get_header_value("Content-Type");
            res.set_content(req.get_param_value("name") + "|" + req.get_param_value("v"), "text/plain");
        });
        server.Get("/denied", [](const httplib::Request&, httplib::Response& res) {
            res.status = 403;
            res.set_content("no session\nsecond line", "text/plain");
        });
        server.Get("/slow", [](const httplib::Request&, httplib::Response& res) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1500));
            res.set_content("late", "text/plain");
        });
    }
};

}  // namespace

TEST_F(HttpFixture, GetAndFormPostWithTheSessionHeader) {
    nvktest::LoopbackServer running(server);
    CHttp http;
    http.setHeader(u"x-nvk-session", u"old");
    http.setHeader(NVK_SessionHeader, u"S-42");
    EXPECT_EQ(http.get(toWide(running.url() + "/hello")), "h\xC3\xA9llo");
    EXPECT_EQ(seenSession, "S-42") << "setting a header again replaces it, names folded";
    EXPECT_EQ(http.getLastStatus(), 200);
    EXPECT_EQ(http.postForm(toWide(running.url() + "/form"), {{u"name", u"a b&c=\u00e9"}, {u"v", u""}}),
              "a b&c=\xC3\xA9|");
    EXPECT_EQ(seenBody, "name=a%20b%26c%3D%C3%A9&v=");
    EXPECT_EQ(seenType, "application/x-www-form-urlencoded");
}

TEST_F(HttpFixture, FailuresNameTheUrlAndTheCause) {
    nvktest::LoopbackServer running(server);
    CHttp http;
    std::string denied = running.url() + "/denied";
    EXPECT_THROW_MSG(http.get(toWide(denied)), Exception, "GET " + denied + " failed: HTTP 403: no session");
    EXPECT_EQ(http.getLastStatus(), 403);
    std::string missing = running.url() + "/missing";
    EXPECT_THROW_MSG(http.postForm(toWide(missing), {}), Exception, "POST " + missing + " failed: HTTP 404: ");

    http.setTimeoutMs(300);
    std::string slow = running.url() + "/slow";
    try {
        http.get(toWide(slow));
        ADD_FAILURE() << "a slow answer did not time out";
    } catch (const Exception& e) {
        EXPECT_EQ(std::string(e.what()).rfind("GET " + slow + " failed: Operation timed out after ", 0), 0u)
            << e.what();
    }
    EXPECT_EQ(http.getLastStatus(), 0);

    std::string refused = "http://127.0.0.1:" + std::to_string(nvktest::closedLoopbackPort()) + "/x";
    try {
        http.get(toWide(refused));
        ADD_FAILURE() << "a closed port answered";
    } catch (const Exception& e) {
        EXPECT_EQ(std::string(e.what()).rfind("GET " + refused + " failed: Failed to connect to 127.0.0.1 port ", 0), 0u)
            << e.what();
    }

    // A local file is no HTTP answer, whatever it holds.
    nvktest::TempDir dir;
    std::string file = "file://" + (dir / "answer.txt").string();
    {
        std::ofstream(dir / "answer.txt") << "local\n";
    }
    EXPECT_THROW_MSG(http.get(toWide(file)), Exception,
                     "GET " + file + " failed: Protocol \"file\" not supported or disabled in libcurl");
}

TEST(Http, RefusedSettingsLeaveTheClientAsItWas) {
    CHttp http;
    EXPECT_THROW_MSG(http.setTimeoutMs(0), BadParameterException, "Timeout must be at least 1 ms, not 0");
    EXPECT_THROW_MSG(http.setConnectTimeoutMs(-5), BadParameterException, "Timeout must be at least 1 ms, not -5");
    EXPECT_EQ(http.getTimeoutMs(), CHttp::DefaultTimeoutMs);
    EXPECT_EQ(http.getConnectTimeoutMs(), CHttp::DefaultConnectTimeoutMs);
    EXPECT_THROW_MSG(http.setHeader(u"X-A", u"1\r\nX-B: 2"), BadParameterException, "Header X-A carries a line break");
}
