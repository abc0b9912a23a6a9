// nvk json FILE [--to-json OUT] [--to-bin OUT [--stream-version N]]: reads
// every JSON record of a file as data nodes, and prints them or writes them
// out as JSON or as a node file, a record at a time.
#include "tools/nvk/Command.h"
#include "tools/nvk/RecordIO.h"

namespace nvk {
namespace {

int runJson(const std::vector<std::string>& args);

const CommandRegistration jsonCommand{
    {"json", "read JSON records as data trees; print them, or write them as JSON or a node file",
     "nvk json FILE [--to-json OUT] [--to-bin OUT [--stream-version N]] [--quiet]\n\n"
     "Reads every record (top-level object) of FILE; text between records is skipped, and a file\n"
     "that is a bare list of members is read as one object. Without options each record is printed\n"
     "as an indented tree: node names, and under each node its properties as NAME: TYPE = VALUE.\n"
     "--to-json OUT writes the records to OUT as one JSON array of objects, one per line.\n"
     "--to-bin OUT writes them to OUT as a node file (\"nvkb\", the stream version, each record's\n"
     "root node, an end mark); --stream-version picks the version, 1 to 3 (default 2). 'nvk bin\n"
     "OUT' reads it back.\n"
     "FILE or OUT '-' is standard input or output (a pipe will do; ./- names a file called '-').\n"
     "Records are read, written and released one at a time, so memory stays at what the largest\n"
     "record needs. An output file is written under a temporary name and put in place at the end:\n"
     "a failed run leaves it as it was. On a terminal, files over 4 MB show a progress bar on\n"
     "standard error (not while records are printed to the same terminal); --quiet turns it off.\n"
     "A file that cannot be read is reported as FILE:LINE:COLUMN: MESSAGE (counted from 1), exit 1;\n"
     "the records before it have been printed (or written, to standard output).",
     &runJson}};

int runJson(const std::vector<std::string>& args) {
    const Command& self = *findCommand("json");
    RecordArgs parsed;
    if (int status = parseRecordArgs(self, args, AllowToJson | AllowToBin, parsed); status >= 0) return status;
    return convertRecords(self, parsed, RecordReader::Format::Json);
}

}  // namespace
}  // namespace nvk
