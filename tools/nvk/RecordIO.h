#pragma once
// What `nvk json` and `nvk bin` share: their arguments, reading records from a
// JSON file or a node file, printing them and writing them out.
//
// A record is one top-level data node. The JSON reader turns each top-level
// object into exactly one root node (nested objects become its children), so
// a JSON file's records and the node file written from it correspond one to
// one: record N of `nvk json F` is record N of `nvk bin F.bin`, and both
// commands print and write them the same way.
#include <string>
#include <vector>

#include "nvk/platform/iNode.h"
#include "tools/nvk/Command.h"

namespace nvk {

using NodeList = std::vector<tovan::Ptr<tovan::iNode>>;

struct RecordArgs {
    std::string input;
    std::string toJson;  // empty: not asked for
    std::string toBin;
    int streamVersion = 0;  // 0: not given (the default stream version is written)
};

/// The options a command accepts, beside its one input file.
enum RecordOptions { AllowToJson = 1, AllowToBin = 2 };

/// Parses FILE and the allowed options (--to-json OUT; --to-bin OUT with
/// --stream-version N). Bad usage is reported through usageError; the
/// return value is then its exit status, else -1.
int parseRecordArgs(const Command& self, const std::vector<std::string>& args, int allowed, RecordArgs& out);

/// Reads every record of a JSON file. A file that cannot be read is reported
/// as "nvk NAME: FILE:LINE:COLUMN: MESSAGE" (counted from 1); returns false then.
bool readJsonRecords(const Command& self, const std::string& path, NodeList& records);
/// Reads every record of a node file. A file that cannot be read is reported
/// as "nvk NAME: FILE: byte OFFSET: MESSAGE", OFFSET being the number of bytes
/// consumed when reading stopped; returns false then. A missing file raises.
bool readNodeRecords(const Command& self, const std::string& path, NodeList& records);

/// "record N" lines, each followed by the record's tree.
void printRecords(const NodeList& records);
/// One JSON array of objects, one record a line; reports "wrote N records to OUT".
void writeJsonRecords(const NodeList& records, const std::string& path);
/// A node file; reports "wrote N records to OUT (stream version V)".
void writeNodeRecords(const NodeList& records, const std::string& path, int streamVersion);

/// Does what `args` asked of the records read: print them, or write them.
int finishRecords(const NodeList& records, const RecordArgs& args);

}  // namespace nvk
