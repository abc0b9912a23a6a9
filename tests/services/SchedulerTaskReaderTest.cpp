#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "nvk/services/SchedulerTaskReader.h"
#include "tests/support/TestSupport.h"

using namespace nvk;
using tovan::BadParameterException;
using tovan::Exception;
using tovan::WString;
using nvktest::utf8;

namespace {

void writeText(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

std::string definition(const std::string& keys) { return "<SchedulerTask>" + keys + "</SchedulerTask>"; }

std::string key(const std::string& name, const std::string& value) {
    return "<Property name=\"" + name + "\">" + value + "</Property>";
}

std::string param(const SchedulerTask& t, const char16_t* name) {
    return utf8(t.getRuntimeProperties()->get(name).getValue().toString());
}

}  // namespace

// Names, groups, owners and companions come from where the file lies (every key of
// the bundled example is read back by 'nvk task show').
TEST(SchedulerTaskReader, PlacesNamesAndCompanions) {
    nvktest::TempDir dir;
    std::string keys = key("TaskSpec", "p.json") + key("TriggerSpec", "0 0 9 ? * 2 *");
    writeText(dir / "user/bob/Weekly%2Ereport.xml", definition(keys + key("Param:a&amp;b", "&lt;1&gt;")));
    writeText(dir / "package/stats/Cleanup.xml", definition(keys + key("TaskOwner", "pkg")));
    writeText(dir / "package/stats/Cleanup.2.xml", definition(key("Disabled", "BLOCKED_BY_ADMIN")));
    writeText(dir / "admin/Purge.xml", definition(keys + key("Disabled", "true") + key("TriggerType", "interval")));

    SchedulerTaskReader reader;
    SchedulerTask t;
    WString user = tovan::toWide((dir / "user/bob/Weekly%2Ereport.xml").string());
    reader.readTask(user, t);
    EXPECT_EQ(utf8(t.getName()), "Weekly.report");
    EXPECT_EQ(t.getID(), user);
    EXPECT_EQ(t.getGroup(), SchedulerTask::User);
    EXPECT_EQ(utf8(t.getOwner()), "bob") << "the user's folder names the owner";
    EXPECT_EQ(param(t, u"a&b"), "<1>");
    WString prefix;
    ASSERT_TRUE(SchedulerTaskReader::getUserFileNamePrefix(user, prefix));
    EXPECT_EQ(utf8(prefix), (dir / "user/bob/").string());
    EXPECT_FALSE(SchedulerTaskReader::getUserFileNamePrefix(u"/srv/admin/x.xml", prefix));
    EXPECT_EQ(utf8(prefix), (dir / "user/bob/").string());

    WString package = tovan::toWide((dir / "package/stats/Cleanup.xml").string());
    reader.readTask(package, t);
    EXPECT_EQ(t.getGroup(), SchedulerTask::Package);
    EXPECT_EQ(t.getDisabledReason(), SchedulerTask::BLOCKED_BY_ADMIN);
    EXPECT_FALSE(t.getRuntimeProperties()) << "the task was reset before reading";
    reader.readTask(package, t, false);
    EXPECT_FALSE(t.isDisabled()) << "without the companion";

    reader.readTask(tovan::toWide((dir / "admin/Purge.xml").string()), t);
    EXPECT_EQ(t.getGroup(), SchedulerTask::Admin);
    EXPECT_EQ(t.getDisabledReason(), SchedulerTask::USER_DISABLED);
    EXPECT_EQ(t.getTriggerType(), SchedulerTask::Interval);

    // The folder nearest the file decides, whatever the folders of the root
    // are called; a user may be called admin.
    struct Place {
        const char* file;
        SchedulerTask::SchedulerTaskGroup group;
        const char* owner;
    } places[] = {
        {"home/user/tasks/user/carol/T.xml", SchedulerTask::User, "carol"},
        {"srv/admin/tasks/user/dave/T.xml", SchedulerTask::User, "dave"},
        {"srv/package/tasks/user/admin/T.xml", SchedulerTask::User, "admin"},
        {"srv/user/tasks/admin/T.xml", SchedulerTask::Admin, ""},
        {"srv/user/tasks/package/stats/T.xml", SchedulerTask::Package, ""},
    };
    for (const Place& p : places) {
        writeText(dir / p.file, definition(keys));
        reader.readTask(tovan::toWide((dir / p.file).string()), t);
        EXPECT_EQ(t.getGroup(), p.group) << p.file;
        EXPECT_EQ(utf8(t.getOwner()), p.owner) << p.file;
    }
    ASSERT_TRUE(SchedulerTaskReader::getUserFileNamePrefix(u"/home/user/tasks/user/carol/T.xml", prefix));
    EXPECT_EQ(utf8(prefix), "/home/user/tasks/user/carol/");
}

TEST(SchedulerTaskReader, WrittenFilesReadBack) {
    nvktest::TempDir dir;
    SchedulerTask t;
    t.setName(u"Caf\u00e9 / 100% \u65e5\u672c.2");
    t.setTaskType(SchedulerTask::Service);
    t.setTaskSpec(u"http://svc/run?a=1&b=<2>");
    t.setTriggerSpec(u"0 0 12 1 1 ? 2031");
    t.setOwner(u"zo\u00eb");
    t.setDisabledReason(SchedulerTask::OTHER);
    tovan::Ptr<CPropertyCollection> params(CPropertyCollection::newInstance());
    for (int i = 0; i < 300; ++i)
        params->define(tovan::toWide("p" + std::to_string(i) + " \"q\""), tovan::toWide("line\none\t" + std::to_string(i)));
    t.setRuntimeProperties(params);
    std::filesystem::create_directories(dir / "user/zo\xC3\xAB");
    WString file = SchedulerTaskReader::taskFileName(t.getName());
    EXPECT_EQ(utf8(file), "Caf\xC3\xA9 %2F 100%25 \xE6\x97\xA5\xE6\x9C\xAC%2E2.xml");
    WString path = tovan::toWide((dir / "user/zo\xC3\xAB").string() + "/" + utf8(file));
    SchedulerTaskReader::writeTask(path, t);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir / "user/zo\xC3\xAB"), {}), 1)
        << "no temporary file is left";

    SchedulerTask back;
    SchedulerTaskReader().readTask(path, back);
    EXPECT_EQ(back.getName(), t.getName());
    EXPECT_EQ(back.getTaskType(), SchedulerTask::Service);
    EXPECT_EQ(back.getTaskSpec(), t.getTaskSpec());
    EXPECT_EQ(back.getOwner(), t.getOwner());
    EXPECT_EQ(back.getDisabledReason(), SchedulerTask::OTHER);
    ASSERT_EQ(back.getRuntimeProperties()->getSize(), 300);
    EXPECT_EQ(param(back, u"p299 \"q\""), "line\none\t299");

    EXPECT_THROW_MSG(SchedulerTaskReader::writeTask(tovan::toWide((dir / "missing/x.xml").string()), t), Exception,
                     "Cannot write task file \"" + (dir / "missing/x.xml").string() + "\": No such file or directory");
}

// A character that XML cannot carry would come back as another one, or spoil
// the file: the task is refused before anything is written.
TEST(SchedulerTaskReader, TextsAFileCannotCarry) {
    nvktest::TempDir dir;
    std::string path = (dir / "t.xml").string();
    auto base = [] {
        SchedulerTask t;
        t.setName(u"t");
        t.setTaskSpec(u"p.json");
        t.setTriggerSpec(u"0 0 9 * * ? *");
        return t;
    };
    auto withParam = [&](const WString& name, const WString& value) {
        SchedulerTask t = base();
        tovan::Ptr<CPropertyCollection> params(CPropertyCollection::newInstance());
        params->define(name, value);
        t.setRuntimeProperties(params);
        return t;
    };
    struct Case {
        SchedulerTask task;
        std::string what;
    };
    std::vector<Case> cases;
    cases.push_back({base(), "name holds U+0001"});
    cases.back().task.setName(u"a\u0001b");
    cases.push_back({base(), "task spec holds U+FFFF"});
    cases.back().task.setTaskSpec(u"p\uFFFF.json");
    cases.push_back({base(), "trigger spec holds U+D800"});
    cases.back().task.setTriggerSpec(WString(std::u16string(u"0 0 9 * * ? *") + char16_t(0xD800)));
    cases.push_back({base(), "owner holds U+0000"});
    cases.back().task.setOwner(WString(std::u16string(u"al\0ice", 6)));
    cases.push_back({withParam(WString(std::u16string(1, char16_t(0xDC00))), u"v"), "parameter name holds U+DC00"});
    cases.push_back({withParam(u"n", u"v\u001F"), "parameter value holds U+001F"});
    for (const Case& c : cases)
        EXPECT_THROW_MSG(SchedulerTaskReader::writeTask(tovan::toWide(path), c.task), BadParameterException,
                         "Cannot write task file \"" + path + "\": its " + c.what + ", which XML cannot carry");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 0) << "nothing was written";

    // Tab, line breaks, U+007F and characters beyond U+FFFF are carried.
    SchedulerTask fine = withParam(u"n\U0001F600", u"\t\r\n\u007F");
    fine.setName(u"t");
    SchedulerTaskReader::writeTask(tovan::toWide(path), fine);
    SchedulerTask back;
    SchedulerTaskReader().readTask(tovan::toWide(path), back);
    EXPECT_EQ(utf8(back.getRuntimeProperties()->get(u"n\U0001F600").getValue().toString()), "\t\r\n\x7F");
}

// Every failure is the one message, with its reason given as a warning before.
TEST(SchedulerTaskReader, FilesThatAreNoTask) {
    nvktest::TempDir dir;
    std::string spec = key("TaskSpec", "p.json") + key("TriggerSpec", "0 0 9 * * ? *");
    struct Case {
        const char* file;
        std::string text;
        std::string reason;
    } cases[] = {
        {"broken.xml", "<SchedulerTask><Property name=\"TaskSpec\">x</SchedulerTask>",
         "Parse error: mismatched tag at line 1, column 45"},
        {"other.xml", "<Task/>", "the document element is not SchedulerTask"},
        {"unnamed.xml", definition("<Property>x</Property>"), "element Property is not a Property with a name"},
        {"type.xml", definition(spec + key("TaskType", "Script")), "key TaskType: Unsupported Task Type"},
        {"reason.xml", definition(spec + key("Disabled", "maybe")), "key Disabled: Unsupported Disabled value"},
        {"nospec.xml", definition(key("TriggerSpec", "0 0 9 * * ? *")), "no TaskSpec"},
        {"notrigger.xml", definition(key("TaskSpec", "p.json")), "no TriggerSpec"},
        {"noevent.xml", definition(spec + key("TriggerType", "ExternalEvent")),
         "no EventID (an ExternalEvent trigger needs one)"},
        {"named.xml", definition(spec + key("TaskName", "other")),
         "TaskName \"other\" differs from the file's name \"named\""},
        {"ok.2.xml", definition(spec), "a task file's name ends in .xml (and not .2.xml)"},
        {"notxml.txt", definition(spec), "a task file's name ends in .xml (and not .2.xml)"},
    };
    SchedulerTaskReader reader;
    SchedulerTask t;
    t.setName(u"before");
    for (const Case& c : cases) {
        writeText(dir / c.file, c.text);
        std::string path = (dir / c.file).string();
        tovan::DiagnosticCapture capture;
        EXPECT_THROW_MSG(reader.readTask(tovan::toWide(path), t), Exception, path + " is not a valid scheduler task");
        EXPECT_EQ(capture.warnings(), std::vector<std::string>{path + ": " + c.reason}) << c.file;
        EXPECT_EQ(utf8(t.getName()), "before") << c.file;
    }
    // A broken companion spoils its task; a missing file is reported the same way.
    writeText(dir / "good.xml", definition(spec));
    writeText(dir / "good.2.xml", "<SchedulerTask>");
    tovan::DiagnosticCapture capture;
    EXPECT_THROW_MSG(reader.readTask(tovan::toWide((dir / "good.xml").string()), t), Exception,
                     (dir / "good.xml").string() + " is not a valid scheduler task");
    EXPECT_THROW_MSG(reader.readTask(tovan::toWide((dir / "gone.xml").string()), t), Exception,
                     (dir / "gone.xml").string() + " is not a valid scheduler task");
    ASSERT_EQ(capture.warnings().size(), 2u);
    EXPECT_EQ(capture.warnings()[1],
              (dir / "gone.xml").string() + ": Unable to open file \"" + (dir / "gone.xml").string() +
                  "\": No such file or directory");
    // Unknown keys are left out with a warning of their own.
    writeText(dir / "extra.xml", definition(spec + key("Colour", "red")));
    capture.clear();
    reader.readTask(tovan::toWide((dir / "extra.xml").string()), t);
    EXPECT_EQ(capture.warnings(), std::vector<std::string>{(dir / "extra.xml").string() + ": unknown task key \"Colour\" left out"});
}
