#pragma once
// JSON record files of a chosen size for the tool tests, generated in place
// (never stored): varied members, nested objects and arrays, texts beyond ASCII.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

namespace nvktest {

/// Writes records to `path` until the file reaches `bytes`, as one JSON
/// array of objects, one a line; returns how many were written. Every record
/// is about the same size, so that the largest one does not depend on `bytes`.
inline uint64_t writeGeneratedRecords(const std::filesystem::path& path, uint64_t bytes, uint64_t seed = 1) {
    static const char* const kWords[] = {"alpha", "gamma \\u00e9t\\u00e9", "line\\nbreak", "\\\"quoted\\\"", "\\u2713 ok",
                                         "</tag>", "", "12"};
    std::ofstream out(path, std::ios::binary);
    std::string line;
    uint64_t written = 1, n = 0, state = seed;
    out << "[";
    while (written < bytes) {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        const unsigned r = unsigned(state >> 33);
        line = n ? ",\n" : "";
        line += "{\"id\":" + std::to_string(n) + ",\"name\":\"item-" + std::to_string(r % 1000) + "\",\"score\":" +
                std::to_string(r % 997) + "." + std::to_string(r % 10) + ",\"ok\":" + (r & 1 ? "true" : "false") +
                ",\"note\":\"" + kWords[r % 8] + "\",\"none\":null,\"tags\":[\"" + kWords[(r >> 3) % 8] + "\",\"b\"]" +
                ",\"grid\":[[1,2],[3," + std::to_string(r % 50) + "]],\"place\":{\"x\":" + std::to_string(int(r % 200) - 100) +
                ",\"y\":" + std::to_string(r % 7) + ".25,\"label\":\"" + kWords[(r >> 6) % 8] + "\"}" +
                ",\"parts\":[{\"k\":1,\"w\":\"" + kWords[(r >> 9) % 8] + "\"},{\"k\":2,\"w\":\"x\"}]}";
        out << line;
        written += line.size();
        ++n;
    }
    out << "]\n";
    return n;
}

}  // namespace nvktest
