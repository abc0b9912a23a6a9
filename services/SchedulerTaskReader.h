#pragma once
// SchedulerTaskReader: task definition files, read and written.
//
// A definition file is XML: a SchedulerTask element holding one Property
// element per key, the key in its name attribute and the value as its text.
// examples/nightly-clean.xml is one:
//
//   <SchedulerTask>
//     <Property name="TaskType">Protocol</Property>
//     <Property name="TaskSpec">Protocols/Clean and score.json</Property>
//     <Property name="TriggerType">Cron</Property>
//     <Property name="TriggerSpec">0 30 2 * * ? *</Property>
//     <Property name="Param:Input folder">/data/incoming</Property>
//   </SchedulerTask>
//
// Keys: "TaskName", "TaskType", "TaskSpec", "TriggerType", "TriggerSpec",
// "TaskOwner", "Disabled", and runtime properties as "Param:" and their name;
// and ours, "EventID", the event an ExternalEvent trigger waits for.
// TaskType and TriggerType default to Protocol and Cron, Disabled to NONE
// ("true" and "false" are read as USER_DISABLED and NONE, other texts as a
// reason); TaskSpec and a TriggerSpec (an EventID for an ExternalEvent
// trigger) are required. Other keys are left out with a warning.
//
// The task's name is the file's name without ".xml", with "%XX" escapes
// decoded (a name may hold any character: "/", "\", "%", "." and control
// characters are written as escapes). A TaskName key, when there is one, must
// say the same. The ID is the file's path.
//
// Where the file lies decides the group: the folder nearest the file that is
// named "user", "admin" or "package" makes a user, admin or package task (a
// file in "user/admin/" is a task of the user named admin); any other place
// a core task. The folder below "user" names a user task's owner when there
// is no TaskOwner key. A companion file beside it ("NAME.2.xml", same layout)
// holds changes made on the server (an administrator disabling a package
// task, say): its keys replace the main file's.
#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"
#include "nvk/services/SchedulerTask.h"

namespace nvk {

class NVK_EXPORT SchedulerTaskReader {
public:
    /// Reads the definition file at `path` into `task` (which is reset first),
    /// applying its companion file when `applyModifications`. A file that
    /// cannot be read, is not XML of this layout, or does not give a valid
    /// task raises Exception "%ls is not a valid scheduler task" (class
    /// "SchedulerTaskReader", operation "readTask") with the path, after a
    /// warning that gives the reason; `task` is then left as it was. A
    /// companion file itself ("x.2.xml") is not a task.
    void readTask(const tovan::WString& path, SchedulerTask& task, bool applyModifications = true);

    /// The part of a user task's path up to its user's folder: ".../user/alice/"
    /// for ".../user/alice/Nightly.xml" (the "user" folder nearest the file).
    /// False, `prefix` untouched, when the path does not lie in a user's folder.
    static bool getUserFileNamePrefix(const tovan::WString& path, tovan::WString& prefix);

    /// The file name of a task name: escapes for the characters a file name
    /// cannot hold or that would change its meaning, then ".xml".
    static tovan::WString taskFileName(const tovan::WString& taskName);

    /// Writes `task` as a definition file at `path`: first to a temporary file
    /// beside it, then renamed over it, so that neither a reader nor a crash
    /// of the writing process ever leaves half a file. Raises Exception "Cannot write task file \"%ls\": %hs" (operation
    /// "writeTask") with the system's reason. A text of the task holding a
    /// character that XML cannot carry (a control character other than tab,
    /// line feed and carriage return, U+FFFE, U+FFFF, half of a surrogate
    /// pair) raises BadParameterException "Cannot write task file \"%ls\":
    /// its %hs holds U+%04lX, which XML cannot carry" (the name, task spec,
    /// trigger spec, owner, parameter name or parameter value) before
    /// anything is written.
    static void writeTask(const tovan::WString& path, const SchedulerTask& task);

protected:
    /// Reads the keys of one file into `task`; false with `reason` set when
    /// the file is no definition file.
    bool internalReadTask(const tovan::WString& path, SchedulerTask& task, std::string& reason);
    /// Applies the companion of `path` when there is one; false with `reason`
    /// set when it is there but unreadable.
    bool handleModificationFile(const tovan::WString& path, SchedulerTask& task, std::string& reason);

private:
    static bool buildTasksName(const tovan::WString& path, tovan::WString& name);
    static SchedulerTask::SchedulerTaskGroup determineTaskGroup(const tovan::WString& path);
};

}  // namespace nvk
