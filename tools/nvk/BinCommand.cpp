// nvk bin FILE [--to-json OUT]: reads a node file (as `nvk json --to-bin`
// writes it) and prints its records or writes them as JSON.
#include "tools/nvk/Command.h"
#include "tools/nvk/RecordIO.h"

namespace nvk {
namespace {

int runBin(const std::vector<std::string>& args);

const CommandRegistration binCommand{
    {"bin", "read a node file's records; print them or write them as JSON",
     "nvk bin FILE [--to-json OUT] [--quiet]\n\n"
     "Reads every record of the node file FILE (\"nvkb\", the stream version, one root node per\n"
     "record, an end mark), whatever its stream version. Without options each record is printed\n"
     "as an indented tree, exactly as 'nvk json' prints the JSON it came from; --to-json\n"
     "OUT writes the records to OUT as one JSON array of objects, one per line.\n"
     "FILE or OUT '-' is standard input or output; records pass one at a time, with a progress\n"
     "bar as for 'nvk json' (--quiet turns it off).\n"
     "A file that cannot be read is reported as FILE: byte OFFSET: MESSAGE, OFFSET being the\n"
     "number of bytes read when reading stopped, exit 1; a pipe that ends early likewise.",
     &runBin}};

int runBin(const std::vector<std::string>& args) {
    const Command& self = *findCommand("bin");
    RecordArgs parsed;
    if (int status = parseRecordArgs(self, args, AllowToJson, parsed); status >= 0) return status;
    return convertRecords(self, parsed, RecordReader::Format::Nodes);
}

}  // namespace
}  // namespace nvk
