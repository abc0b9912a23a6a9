// The client against the real service on a free loopback port, and against
// servers of the test's own that misbehave.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <set>
#include <thread>

#include "nvk/services/CSchedulerService.h"
#include "nvk/services/CSchedulerServiceClient.h"
#include "nvk/services/SchedulerTaskReader.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TestSupport.h"

using namespace nvk;
using tovan::Array;
using tovan::BadParameterException;
using tovan::Exception;
using tovan::WString;
using nvktest::failureText;
using nvktest::utf8;
namespace fs = std::filesystem;

namespace {

SchedulerTask makeTask(const WString& name, int params = 0) {
    SchedulerTask t;
    t.setName(name);
    t.setTaskSpec(u"Protocols/clean-and-score.json");
    t.setTriggerSpec(u"0 30 2 * * ? *");
    if (params > 0) {
        tovan::Ptr<CPropertyCollection> p(CPropertyCollection::newInstance());
        for (int i = 0; i < params; ++i)
            p->define(tovan::toWide("Param " + std::to_string(i) + " & \xC3\xA9=?"), tovan::toWide("v%" + std::to_string(i)));
        t.setRuntimeProperties(p);
    }
    return t;
}

std::set<std::string> names(const Array<SchedulerTask>& tasks) {
    std::set<std::string> out;
    for (const SchedulerTask& t : tasks) out.insert(utf8(t.getName()));
    return out;
}

// Sends `request` as it is on a connection of its own and gives the answer's
// status and body ("400 text"), for requests no HTTP client library sends.
std::string rawExchange(int port, const std::string& request) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string answer;
    if (fd >= 0 && ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        ::send(fd, request.data(), request.size(), 0) == ssize_t(request.size())) {
        char buffer[4096];
        for (ssize_t n; (n = ::recv(fd, buffer, sizeof buffer, 0)) > 0;) answer.append(buffer, size_t(n));
    }
    if (fd >= 0) ::close(fd);
    size_t status = answer.find(' '), body = answer.find("\r\n\r\n");
    if (status == std::string::npos || body == std::string::npos) return "no answer: " + answer;
    return answer.substr(status + 1, 3) + " " + answer.substr(body + 4);
}

struct ServiceFixture : ::testing::Test {
    nvktest::TempDir root;
    CSchedulerService service{tovan::toWide(root.path().string()), u"S3cret"};
    std::string url;
    void SetUp() override { url = "http://127.0.0.1:" + std::to_string(service.start()); }
    std::string tasksUrl() const { return url + "/schedulercrud/tasks"; }
};

}  // namespace

TEST_F(ServiceFixture, ListAddAndDelete) {
    fs::create_directories(root / "core");
    fs::copy_file(nvktest::sourceDir() / "examples/nightly-clean.xml", root / "core/nightly-clean.xml");
    CSchedulerServiceClient client(tovan::toWide(url), u"S3cret", u"\u00e5sa");
    Array<SchedulerTask> tasks;
    ASSERT_TRUE(client.getTasks(tasks));
    ASSERT_EQ(tasks.size(), 1u);
    EXPECT_EQ(utf8(tasks[0].getName()), "nightly-clean");
    EXPECT_EQ(utf8(tasks[0].getOwner()), "alice");
    EXPECT_EQ(utf8(tasks[0].getRuntimeProperties()->get(u"Input folder").getValue().toString()), "/data/stations/incoming");

    SchedulerTask big = makeTask(u"Nuit \u00e9t\u00e9 / \u65e5\u672c 100%", 200);
    big.setTaskType(SchedulerTask::Service);
    big.setDisabledReason(SchedulerTask::USER_DISABLED);
    client.addTask(big);
    EXPECT_TRUE(fs::exists(root / "user/\xC3\xA5sa" / tovan::toNarrow(SchedulerTaskReader::taskFileName(big.getName()))));
    ASSERT_TRUE(client.getTasks(tasks));
    ASSERT_EQ(tasks.size(), 2u);
    const SchedulerTask& back = utf8(tasks[0].getName()) == "nightly-clean" ? tasks[1] : tasks[0];
    EXPECT_EQ(back.getName(), big.getName());
    EXPECT_EQ(utf8(back.getOwner()), "\xC3\xA5sa");
    EXPECT_EQ(back.getTaskType(), SchedulerTask::Service);
    EXPECT_EQ(back.getDisabledReason(), SchedulerTask::USER_DISABLED);
    ASSERT_EQ(back.getRuntimeProperties()->getSize(), 200);
    EXPECT_EQ(utf8(back.getRuntimeProperties()->get(u"Param 199 & \u00e9=?").getValue().toString()), "v%199");

    EXPECT_EQ(failureText([&] { client.addTask(big); }),
              "POST " + tasksUrl() + " failed: HTTP 409: Task " + utf8(big.getName()) + " of \xC3\xA5sa already exists");
    client.deleteTask(big.getName());
    ASSERT_TRUE(client.getTasks(tasks));
    EXPECT_EQ(names(tasks), std::set<std::string>{"nightly-clean"});
    std::string deleteUrl = tasksUrl() + "?%24name=x%20y";
    EXPECT_EQ(failureText([&] { client.deleteTask(u"x y"); }),
              "POST " + deleteUrl + " failed: HTTP 404: No task x y of \xC3\xA5sa");

    // An ExternalEvent task travels with its event and without a trigger spec.
    SchedulerTask event = makeTask(u"on upload");
    event.setTriggerSpec(u"");
    event.setTriggerType(SchedulerTask::ExternalEvent);
    event.setEventID(u"upload-done");
    client.addTask(event);
    ASSERT_TRUE(client.getTasks(tasks));
    ASSERT_EQ(names(tasks), (std::set<std::string>{"nightly-clean", "on upload"}));
    const SchedulerTask& listed = utf8(tasks[0].getName()) == "on upload" ? tasks[0] : tasks[1];
    EXPECT_EQ(listed.getTriggerType(), SchedulerTask::ExternalEvent);
    EXPECT_EQ(utf8(listed.getEventID()), "upload-done");
    client.deleteTask(event.getName());

    // An invalid task is refused before anything is sent.
    SchedulerTask invalid = makeTask(u"");
    EXPECT_THROW_MSG(client.addTask(invalid), BadParameterException, "Task is invalid");
    fs::remove(root / "core/nightly-clean.xml");
    EXPECT_FALSE(client.getTasks(tasks));
    EXPECT_EQ(tasks.size(), 0u);
}

// What the service answers to requests its client would not send.
TEST_F(ServiceFixture, BadRequestsGetAStatusAndAText) {
    httplib::Client raw("127.0.0.1", service.getPort());
    auto expect = [](const httplib::Result& r, int status, const std::string& text) {
        ASSERT_TRUE(r);
        EXPECT_EQ(r->status, status);
        EXPECT_EQ(r->body, text + "\n");
    };
    expect(raw.Get("/schedulercrud/tasks"), 401, "Missing session header X-NVK-Session");
    httplib::Headers wrong{{"X-NVK-Session", "guess"}}, right{{"X-NVK-Session", "S3cret"}};
    expect(raw.Get("/schedulercrud/tasks", wrong), 403, "Wrong session");
    expect(raw.Get("/schedulercrud/jobs", right), 404,
           "Unknown request /schedulercrud/jobs (the service answers /schedulercrud/tasks)");
    expect(raw.Delete("/schedulercrud/tasks", right), 405, "Method DELETE is not allowed on /schedulercrud/tasks");
    const std::string add = "_actionType=add&_userid=bo&%24name=n&%24protocol=p";
    const struct {
        std::string form;
        int status;
        std::string text;
    } posts[] = {
        {"_actionType=rename", 400, "Unknown _actionType 'rename' (add or delete)"},
        {add, 400, "Missing form key $triggerspec"},
        {add + "&%24triggerspec=s&%24tasktype=Script", 400, "Task is invalid: Unsupported Task Type"},
        {add + "&%24triggerspec=s&%24triggertype=ExternalEvent", 400, "Missing form key $eventid"},
        {"_actionType=delete&_userid=bo", 400, "Missing form key $name"},
        // A body too large to take whole (one cut in a chunk follows), and a name no file can carry.
        {add + "&%24triggerspec=s&%24properties=" + std::string(16 << 20, 'x'), 413, "Request body over 16 MB"},
        {"_actionType=add&_userid=bo&%24name=a%01b&%24protocol=p&%24triggerspec=s", 400,
         "Task is invalid: Cannot write task file \"" + (root / "user/bo/a%01b.xml").string() +
             "\": its name holds U+0001, which XML cannot carry"},
    };
    for (const auto& p : posts)
        expect(raw.Post("/schedulercrud/tasks", right, p.form, "application/x-www-form-urlencoded"), p.status, p.text);
    EXPECT_EQ(rawExchange(service.getPort(),
                          "POST /schedulercrud/tasks HTTP/1.1\r\nHost: h\r\nX-NVK-Session: S3cret\r\n"
                          "Transfer-Encoding: chunked\r\nConnection: close\r\n\r\nzz\r\n"),
              "400 The request body could not be read (it needs a Content-Length or whole chunks)\n");
    EXPECT_FALSE(fs::exists(root / "user/bo")) << "nothing was written";

    // A root that has gone is the service's fault: 500 with the reason.
    CSchedulerServiceClient client(tovan::toWide(url), u"S3cret", u"bo");
    Array<SchedulerTask> tasks;
    fs::remove_all(root.path());
    EXPECT_EQ(failureText([&] { client.getTasks(tasks); }),
              "GET " + tasksUrl() + " failed: HTTP 500: Cannot list the tasks under " + root.path().string() +
                  ": No such file or directory");
    fs::create_directories(root.path());
}

TEST(SchedulerService, StartAndStop) {
    nvktest::TempDir root;
    EXPECT_THROW_MSG(CSchedulerService(tovan::toWide(root.path().string()), u""), BadParameterException,
                     "The session key must not be empty");
    CSchedulerService first(tovan::toWide(root.path().string()), u"k");
    int port = first.start();
    EXPECT_THROW_MSG(first.start(), Exception, "The service is already running");
    CSchedulerService second(tovan::toWide(root.path().string()), u"k");
    EXPECT_THROW_MSG(second.start(port), Exception, "Cannot listen on 127.0.0.1 port " + std::to_string(port));
    first.stop();
    first.stop();
    CSchedulerServiceClient client(tovan::toWide("http://127.0.0.1:" + std::to_string(port)), u"k", u"u");
    Array<SchedulerTask> tasks;
    std::string refused = failureText([&] { client.getTasks(tasks); });
    EXPECT_EQ(refused.rfind("GET http://127.0.0.1:" + std::to_string(port) +
                                "/schedulercrud/tasks failed: Failed to connect to 127.0.0.1 port " + std::to_string(port),
                            0),
              0u)
        << refused;
}

// Servers that answer too slowly, with broken XML, or with texts no task has.
TEST(SchedulerService, MisbehavingServers) {
    httplib::Server server;
    std::string listing;
    server.Get("/schedulercrud/tasks", [&](const httplib::Request& req, httplib::Response& res) {
        if (req.has_param("slow")) std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        res.set_content(listing, "application/xml");
    });
    server.Get("/slow/schedulercrud/tasks", [&](const httplib::Request&, httplib::Response& res) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        res.set_content(listing, "application/xml");
    });
    nvktest::LoopbackServer running(server);
    CSchedulerServiceClient client(tovan::toWide(running.url()), u"k", u"u");
    Array<SchedulerTask> tasks;
    tasks.push_back(makeTask(u"kept"));
    std::string tasksUrl = running.url() + "/schedulercrud/tasks";

    listing = "<tf:tasks xmlns:tf=\"urn:x\"><tf:item><tf:TaskName>a</tf:TaskName>";
    EXPECT_EQ(failureText([&] { client.getTasks(tasks); }),
              "The answer of " + tasksUrl + " is not a task list: Parse error: no element found at line 1, column 65");
    listing = "<tf:tasks xmlns:tf=\"urn:x\"><tf:item><tf:TaskName>a</tf:TaskName>"
              "<tf:TriggerType>Hourly</tf:TriggerType></tf:item></tf:tasks>";
    EXPECT_THROW_MSG(client.getTasks(tasks), BadParameterException, "Unsupported Trigger Type");
    EXPECT_EQ(names(tasks), std::set<std::string>{"kept"}) << "a failed listing leaves the array alone";
    listing = "<tf:tasks xmlns:tf=\"urn:x\"><tf:item><tf:TaskName>b</tf:TaskName></tf:item>"
              "<other><tf:item><tf:TaskName>nested</tf:TaskName></tf:item></other></tf:tasks>";
    ASSERT_TRUE(client.getTasks(tasks));
    EXPECT_EQ(names(tasks), std::set<std::string>{"b"});

    CSchedulerServiceClient slow(tovan::toWide(running.url() + "/slow"), u"k", u"u");
    slow.setTimeouts(1000, 300);
    std::string timedOut = failureText([&] { slow.getTasks(tasks); });
    EXPECT_EQ(timedOut.rfind("GET " + running.url() + "/slow/schedulercrud/tasks failed: Operation timed out after ", 0), 0u)
        << timedOut;
}

// Eight threads add 125 tasks each and delete every other one, four of them
// through one shared client and four through clients of their own.
TEST_F(ServiceFixture, EightThreadsAddAndDelete) {
    CSchedulerServiceClient shared(tovan::toWide(url), u"S3cret", u"team");
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            std::unique_ptr<CSchedulerServiceClient> own;
            if (t >= 4) own = std::make_unique<CSchedulerServiceClient>(tovan::toWide(url), u"S3cret", u"team");
            CSchedulerServiceClient& client = own ? *own : shared;
            try {
                for (int i = 0; i < 125; ++i) client.addTask(makeTask(tovan::toWide("t" + std::to_string(t) + "-" + std::to_string(i)), 3));
                for (int i = 1; i < 125; i += 2) client.deleteTask(tovan::toWide("t" + std::to_string(t) + "-" + std::to_string(i)));
            } catch (const Exception& e) {
                ++failures;
                ADD_FAILURE() << e.what();
            }
        });
    for (auto& th : threads) th.join();
    ASSERT_EQ(failures.load(), 0);

    Array<SchedulerTask> tasks;
    ASSERT_TRUE(shared.getTasks(tasks));
    EXPECT_EQ(tasks.size(), 504u) << "no task lost or listed twice";
    std::set<std::string> want;
    for (int t = 0; t < 8; ++t)
        for (int i = 0; i < 125; i += 2) want.insert("t" + std::to_string(t) + "-" + std::to_string(i));
    EXPECT_EQ(names(tasks), want);
    // Every file on disk is whole, and no temporary file is left.
    int files = 0;
    SchedulerTaskReader reader;
    for (const auto& entry : fs::directory_iterator(root / "user/team")) {
        ++files;
        SchedulerTask t;
        reader.readTask(tovan::toWide(entry.path().string()), t);
        EXPECT_EQ(t.getRuntimeProperties()->getSize(), 3);
    }
    EXPECT_EQ(files, 504);
}
