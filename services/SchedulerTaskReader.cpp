#include "nvk/services/SchedulerTaskReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "nvk/interchange/XmlReader.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/NumberText.h"
#include "nvk/platform/ReferenceSet.h"
#include "nvk/services/SchedulerText_internal.h"

namespace nvk {

using tovan::WString;

namespace {

constexpr const char* kClass = "SchedulerTaskReader";
constexpr std::u16string_view kParamPrefix = u"Param:";
constexpr std::u16string_view kCompanionSuffix = u".2.xml";

bool endsWith(std::u16string_view text, std::u16string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// The path's folders and file name, split at "/".
std::vector<std::u16string_view> segments(std::u16string_view path) {
    std::vector<std::u16string_view> out;
    size_t start = 0;
    while (start <= path.size()) {
        size_t slash = path.find(u'/', start);
        if (slash == std::u16string_view::npos) slash = path.size();
        out.push_back(path.substr(start, slash - start));
        start = slash + 1;
    }
    return out;
}

// One key of a file applied to a task; false with `reason` for a bad value.
bool applyKey(const WString& key, const WString& value, SchedulerTask& task, std::string& reason) {
    try {
        if (key.view().substr(0, kParamPrefix.size()) == kParamPrefix && key.length() > kParamPrefix.size()) {
            tovan::Ptr<CPropertyCollection> params = task.getRuntimeProperties();
            if (!params) {
                params = tovan::Ptr<CPropertyCollection>(CPropertyCollection::newInstance());
                task.setRuntimeProperties(params);
            }
            WString name(key.view().substr(kParamPrefix.size()));
            params->remove(name);
            params->define(name, value);
        } else if (tovan::equalsNoCase(key.view(), u"TaskType")) {
            task.setTaskType(SchedulerTask::toTaskType(value));
        } else if (tovan::equalsNoCase(key.view(), u"TaskSpec")) {
            task.setTaskSpec(value);
        } else if (tovan::equalsNoCase(key.view(), u"TriggerType")) {
            task.setTriggerType(SchedulerTask::toTriggerType(value));
        } else if (tovan::equalsNoCase(key.view(), u"TriggerSpec")) {
            task.setTriggerSpec(value);
        } else if (tovan::equalsNoCase(key.view(), u"TaskOwner")) {
            task.setOwner(value);
        } else if (tovan::equalsNoCase(key.view(), u"EventID")) {
            task.setEventID(value);
        } else if (tovan::equalsNoCase(key.view(), u"Disabled")) {
            if (value.isEmpty() || tovan::equalsNoCase(value.view(), u"false")) task.setDisabledReason(SchedulerTask::NONE);
            else if (tovan::equalsNoCase(value.view(), u"true")) task.setDisabledReason(SchedulerTask::USER_DISABLED);
            else task.setDisabledReason(SchedulerTask::toDisabledReason(value));
        } else if (tovan::equalsNoCase(key.view(), u"TaskName")) {
            if (value != task.getName()) {
                reason = "TaskName \"" + tovan::toNarrow(value) + "\" differs from the file's name \"" +
                         tovan::toNarrow(task.getName()) + "\"";
                return false;
            }
        } else {
            tovan::Exception::warn(u"%ls: unknown task key \"%ls\" left out", task.getID(), key);
        }
    } catch (const tovan::BadParameterException& e) {
        reason = "key " + tovan::toNarrow(key) + ": " + e.what();
        return false;
    }
    return true;
}

// Reads the Property elements of one file into `task`.
bool readKeys(const WString& path, SchedulerTask& task, std::string& reason) {
    tovan::Ptr<CBaseNode> doc;
    try {
        doc = XmlReader::ReadFile(path);
    } catch (const tovan::Exception& e) {
        reason = e.what();
        return false;
    }
    tovan::NodeReferenceSet root, properties;
    doc->query(u"/*", tovan::QueryDefault, root);
    if (root.size() != 1 || root.get(0)->getName() != u"SchedulerTask") {
        reason = "the document element is not SchedulerTask";
        return false;
    }
    root.get(0)->query(u"*", tovan::QueryDefault, properties);
    for (size_t i = 0; i < properties.size(); ++i) {
        tovan::iNode& p = *properties.get(i);
        const tovan::iProperty* name = p.getName() == u"Property" ? p.getProperties().find(u"name") : nullptr;
        if (!name) {
            reason = "element " + tovan::toNarrow(p.getName()) + " is not a Property with a name";
            return false;
        }
        WString value;
        p.query(u"string(.)", tovan::QueryDefault, value);
        if (!applyKey(name->getValue().toString(), value, task, reason)) return false;
    }
    return true;
}

int hexValue(char16_t c) { return tovan::hexDigitValue(c); }

}  // namespace

void SchedulerTaskReader::readTask(const WString& path, SchedulerTask& task, bool applyModifications) {
    SchedulerTask read;
    std::string reason;
    bool ok = internalReadTask(path, read, reason) && (!applyModifications || handleModificationFile(path, read, reason));
    if (ok && !read.isValid()) {
        reason = read.getTaskSpec().isEmpty()                          ? "no TaskSpec"
                 : read.getTriggerType() == SchedulerTask::ExternalEvent ? "no EventID (an ExternalEvent trigger needs one)"
                                                                         : "no TriggerSpec";
        ok = false;
    }
    if (!ok) {
        tovan::Exception::warn(u"%ls: %hs", path, reason);
        throw tovan::Exception(kClass, "readTask", u"%ls is not a valid scheduler task", path);
    }
    task = read;
}

bool SchedulerTaskReader::internalReadTask(const WString& path, SchedulerTask& task, std::string& reason) {
    WString name;
    if (endsWith(path.view(), kCompanionSuffix) || !buildTasksName(path, name)) {
        reason = "a task file's name ends in .xml (and not .2.xml)";
        return false;
    }
    task.setName(name);
    task.setID(path);
    task.setGroup(determineTaskGroup(path));
    if (!readKeys(path, task, reason)) return false;
    WString prefix;
    if (task.getOwner().isEmpty() && task.getGroup() == SchedulerTask::User && getUserFileNamePrefix(path, prefix)) {
        std::vector<std::u16string_view> parts = segments(prefix.view());
        task.setOwner(WString(parts[parts.size() - 2]));  // the folder before the final "/"
    }
    return true;
}

bool SchedulerTaskReader::handleModificationFile(const WString& path, SchedulerTask& task, std::string& reason) {
    WString companion(path.view().substr(0, path.length() - 4));
    companion.append(kCompanionSuffix);
    if (!std::filesystem::exists(std::filesystem::path(tovan::toNarrow(companion)))) return true;
    if (readKeys(companion, task, reason)) return true;
    reason = "companion " + tovan::toNarrow(companion) + ": " + reason;
    return false;
}

bool SchedulerTaskReader::buildTasksName(const WString& path, WString& name) {
    std::u16string_view file = segments(path.view()).back();
    if (!endsWith(file, u".xml") || file.size() == 4) return false;
    file.remove_suffix(4);
    std::u16string out;
    for (size_t i = 0; i < file.size(); ++i) {
        if (file[i] == u'%' && i + 2 < file.size() && hexValue(file[i + 1]) >= 0 && hexValue(file[i + 2]) >= 0) {
            out += char16_t(hexValue(file[i + 1]) * 16 + hexValue(file[i + 2]));
            i += 2;
        } else {
            out += file[i];
        }
    }
    name = WString(std::move(out));
    return true;
}

// The folder nearest the file decides, so that a root that lies under a
// folder of one of these names ("/home/admin/tasks") does not; a user named
// "admin" or "package" keeps a user's tasks all the same.
SchedulerTask::SchedulerTaskGroup SchedulerTaskReader::determineTaskGroup(const WString& path) {
    std::vector<std::u16string_view> parts = segments(path.view());
    for (size_t i = parts.size() - 1; i-- > 0;) {  // the folders, from the file's up
        if (parts[i] == u"user") return SchedulerTask::User;
        if (i + 2 == parts.size() && i > 0 && parts[i - 1] == u"user") return SchedulerTask::User;
        if (parts[i] == u"admin") return SchedulerTask::Admin;
        if (parts[i] == u"package") return SchedulerTask::Package;
    }
    return SchedulerTask::Core;
}

bool SchedulerTaskReader::getUserFileNamePrefix(const WString& path, WString& prefix) {
    std::vector<std::u16string_view> parts = segments(path.view());
    for (size_t i = parts.size() < 3 ? 0 : parts.size() - 2; i-- > 0;)
        if (parts[i] == u"user" && !parts[i + 1].empty()) {
            size_t length = 0;
            for (size_t j = 0; j <= i + 1; ++j) length += parts[j].size() + 1;
            prefix = WString(path.view().substr(0, length));
            return true;
        }
    return false;
}

WString SchedulerTaskReader::taskFileName(const WString& taskName) {
    std::u16string out;
    for (char16_t c : taskName.view()) {
        if (c < 0x20 || c == 0x7F || c == u'/' || c == u'\\' || c == u'%' || c == u'.') {
            out += u'%';
            out += char16_t(tovan::kHexDigitsUpper[c >> 4 & 0xF]);
            out += char16_t(tovan::kHexDigitsUpper[c & 0xF]);
        } else {
            out += c;
        }
    }
    out += u".xml";
    return WString(std::move(out));
}

namespace {

// The first character of `text` that XML cannot carry (a control character
// other than tab, line feed and carriage return, U+FFFE, U+FFFF, half of a
// surrogate pair), or -1. Written anyway it would come back as another
// character, or make the file unreadable.
long firstUncarriable(std::u16string_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        char16_t c = text[i];
        if ((c < 0x20 && c != u'\t' && c != u'\n' && c != u'\r') || c == 0xFFFE || c == 0xFFFF) return c;
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            ++i;
            continue;
        }
        if (c >= 0xD800 && c <= 0xDFFF) return c;
    }
    return -1;
}

void requireCarriable(const WString& path, const char* what, const WString& text) {
    long c = firstUncarriable(text.view());
    if (c >= 0)
        throw tovan::BadParameterException(kClass, "writeTask",
                                           u"Cannot write task file \"%ls\": its %hs holds U+%04lX, which XML cannot carry",
                                           path, what, c);
}

void appendKey(std::string& out, const WString& key, const WString& value) {
    out += "  <Property name=\"";
    scheduler::appendXmlText(out, key);
    out += "\">";
    scheduler::appendXmlText(out, value);
    out += "</Property>\n";
}

}  // namespace

void SchedulerTaskReader::writeTask(const WString& path, const SchedulerTask& task) {
    requireCarriable(path, "name", task.getName());
    requireCarriable(path, "task spec", task.getTaskSpec());
    requireCarriable(path, "trigger spec", task.getTriggerSpec());
    requireCarriable(path, "owner", task.getOwner());
    requireCarriable(path, "event ID", task.getEventID());
    if (const auto& params = task.getRuntimeProperties())
        for (int i = 0; i < params->getSize(); ++i) {
            requireCarriable(path, "parameter name", params->get(i).getName());
            requireCarriable(path, "parameter value", params->get(i).getValue().toString());
        }
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<SchedulerTask>\n";
    appendKey(text, u"TaskName", task.getName());
    appendKey(text, u"TaskType", SchedulerTask::toString(task.getTaskType(), true));
    appendKey(text, u"TaskSpec", task.getTaskSpec());
    appendKey(text, u"TriggerType", SchedulerTask::toString(task.getTriggerType(), true));
    appendKey(text, u"TriggerSpec", task.getTriggerSpec());
    if (!task.getOwner().isEmpty()) appendKey(text, u"TaskOwner", task.getOwner());
    if (!task.getEventID().isEmpty()) appendKey(text, u"EventID", task.getEventID());
    appendKey(text, u"Disabled", SchedulerTask::toString(task.getDisabledReason(), true));
    if (const auto& params = task.getRuntimeProperties())
        for (int i = 0; i < params->getSize(); ++i) {
            const tovan::iProperty& p = params->get(i);
            appendKey(text, WString(kParamPrefix).append(p.getName().view()), p.getValue().toString());
        }
    text += "</SchedulerTask>\n";

    // A name of its own per writer, so that two writers of one task never
    // share a temporary file; a dot first keeps it out of listings.
    static std::atomic<unsigned> counter{0};
    std::filesystem::path target(tovan::toNarrow(path));
    std::filesystem::path temporary = target.parent_path() /
        ("." + target.filename().string() + "." + std::to_string(::getpid()) + "." + std::to_string(++counter) + ".tmp");
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) throw tovan::Exception(kClass, "writeTask", u"Cannot write task file \"%ls\": %hs", path, std::strerror(errno));
    size_t done = 0;
    while (done < text.size()) {
        ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        done += size_t(n);
    }
    int error = done == text.size() ? 0 : errno;
    // No fsync: the rename alone keeps a process that dies from leaving half a
    // file, and a sync per task made adding a thousand tasks take a minute.
    if (::close(fd) != 0 && !error) error = errno;
    if (!error && ::rename(temporary.c_str(), target.c_str()) != 0) error = errno;
    if (error) {
        ::unlink(temporary.c_str());
        throw tovan::Exception(kClass, "writeTask", u"Cannot write task file \"%ls\": %hs", path, std::strerror(error));
    }
}

}  // namespace nvk
