// Zipped WSDL bundles: the WSDL as the first entry, every file it imports
// after it under its name relative to the folder that holds them all, so
// that the relative locations in the documents resolve inside the zip.
#include <zip.h>

#include <filesystem>
#include <functional>
#include <map>

#include "nvk/platform/Exception.h"
#include "nvk/services/CWsdlParser_internal.h"

namespace nvk {

using tovan::iNode;
using tovan::Ptr;
using tovan::WString;
using wsdl::kClass;

namespace {

// Largest entry read from a bundle, so that a small hostile zip cannot make
// the reader allocate without bound.
constexpr size_t kMaxEntryBytes = size_t(256) << 20;
// Entries get a fixed time so that the same documents make the same bytes.
constexpr time_t kEntryTime = 315532800;  // 1980-01-01, the first time a zip can hold

struct ZipCloser {
    void operator()(zip_t* z) const { zip_discard(z); }
};
using ZipPtr = std::unique_ptr<zip_t, ZipCloser>;

// An entry name that stays inside the bundle: relative, no "..", no "\".
bool safeName(const std::string& name) {
    if (name.empty() || name[0] == '/' || name.find('\\') != std::string::npos || name.back() == '/') return false;
    size_t start = 0;
    while (start <= name.size()) {
        size_t end = name.find('/', start);
        if (end == std::string::npos) end = name.size();
        std::string part = name.substr(start, end - start);
        if (part.empty() || part == "." || part == "..") return false;
        start = end + 1;
    }
    return true;
}

/// The entries of a bundle, in order.
std::vector<std::pair<std::string, std::string>> readBundle(std::string_view bytes) {
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* source = zip_source_buffer_create(bytes.data(), bytes.size(), 0, &error);
    if (!source) throw tovan::Exception(kClass, "ParseZippedWsdl", u"Not a zipped WSDL bundle: %hs", zip_error_strerror(&error));
    ZipPtr zip(zip_open_from_source(source, ZIP_RDONLY, &error));
    if (!zip) {
        zip_source_free(source);
        std::string reason = zip_error_strerror(&error);
        zip_error_fini(&error);
        throw tovan::Exception(kClass, "ParseZippedWsdl", u"Not a zipped WSDL bundle: %hs", reason);
    }
    zip_int64_t count = zip_get_num_entries(zip.get(), 0);
    if (count <= 0) throw tovan::Exception(kClass, "ParseZippedWsdl", u"The zipped WSDL bundle is empty");
    std::vector<std::pair<std::string, std::string>> entries;
    for (zip_int64_t i = 0; i < count; ++i) {
        const char* raw = zip_get_name(zip.get(), zip_uint64_t(i), ZIP_FL_ENC_GUESS);
        std::string name = raw ? raw : "";
        if (!name.empty() && name.back() == '/') continue;  // a folder
        if (!safeName(name))
            throw tovan::Exception(kClass, "ParseZippedWsdl", u"Unsafe entry name in the zipped WSDL bundle: %hs", name);
        std::unique_ptr<zip_file_t, int (*)(zip_file_t*)> file(zip_fopen_index(zip.get(), zip_uint64_t(i), 0), &zip_fclose);
        if (!file)
            throw tovan::Exception(kClass, "ParseZippedWsdl", u"Not a zipped WSDL bundle: %hs", zip_strerror(zip.get()));
        std::string data;
        char block[65536];
        for (;;) {
            zip_int64_t got = zip_fread(file.get(), block, sizeof block);
            if (got < 0)
                throw tovan::Exception(kClass, "ParseZippedWsdl", u"Not a zipped WSDL bundle: %hs", zip_file_strerror(file.get()));
            if (got == 0) break;
            if (data.size() + size_t(got) > kMaxEntryBytes)
                throw tovan::Exception(kClass, "ParseZippedWsdl", u"Entry %hs of the zipped WSDL bundle is larger than %d MiB",
                                       name, int(kMaxEntryBytes >> 20));
            data.append(block, size_t(got));
        }
        entries.emplace_back(std::move(name), std::move(data));
    }
    if (entries.empty()) throw tovan::Exception(kClass, "ParseZippedWsdl", u"The zipped WSDL bundle is empty");
    return entries;
}

// The folder part of a path, as components.
std::vector<std::string> folderOf(const std::string& path) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t slash; (slash = path.find('/', start)) != std::string::npos; start = slash + 1)
        parts.push_back(path.substr(start, slash - start));
    return parts;
}

}  // namespace

Ptr<iNode> CWsdlParser::XMLParser::parseZippedWsdl(std::string_view zipBytes) {
    auto entries = readBundle(zipBytes);
    return parse(std::string_view(entries.front().second));
}

void CWsdlParser::ParseZippedWsdl(std::string_view zipBytes) {
    auto entries = readBundle(zipBytes);
    std::map<std::string, std::string> byName;
    for (const auto& [name, data] : entries) byName.emplace(name, data);
    // A bundle made of a WSDL whose imports were not read lacks them: such an
    // import is left out again, as it was.
    Loader loader([&byName](const std::string& path, std::string& bytes) {
        auto it = byName.find(path);
        if (it == byName.end()) {
            tovan::Exception::warn(u"The import of %hs is not read: the zipped WSDL bundle has no entry for it", path);
            return false;
        }
        bytes = it->second;
        return true;
    });
    auto docs = loader.run(entries.front().first, std::move(entries.front().second), true);
    adopt(docs);
}

void CWsdlParser::GetZippedWsdl(std::string& zipBytes) const {
    requireParsed("GetZippedWsdl");
    // Names relative to the deepest folder that holds every document, found on
    // absolute paths: the imports of a WSDL named from its own folder
    // ("main.wsdl") may lie above it ("../xsd/a.xsd").
    std::vector<std::string> paths;
    for (const auto& d : documents_) {
        std::error_code ec;
        std::filesystem::path full = std::filesystem::absolute(d->path, ec);
        paths.push_back(ec ? d->path : full.lexically_normal().generic_string());
    }
    std::vector<std::string> common = folderOf(paths.front());
    for (const std::string& path : paths) {
        std::vector<std::string> f = folderOf(path);
        size_t n = 0;
        while (n < common.size() && n < f.size() && common[n] == f[n]) ++n;
        common.resize(n);
    }
    size_t strip = 0;
    for (const std::string& c : common) strip += c.size() + 1;

    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* target = zip_source_buffer_create(nullptr, 0, 0, &error);
    if (!target) throw tovan::MemoryException(kClass, "GetZippedWsdl", u"Unable to make a zip: %hs", zip_error_strerror(&error));
    zip_source_keep(target);
    std::unique_ptr<zip_source_t, void (*)(zip_source_t*)> keep(target, &zip_source_free);
    ZipPtr zip(zip_open_from_source(target, ZIP_TRUNCATE, &error));
    if (!zip) {
        std::string reason = zip_error_strerror(&error);
        zip_error_fini(&error);
        throw tovan::Exception(kClass, "GetZippedWsdl", u"Unable to make a zip: %hs", reason);
    }
    for (size_t i = 0; i < documents_.size(); ++i) {
        const Document* d = documents_[i].get();
        std::string name = paths[i].substr(strip);
        // A name that would leave the bundle (a ".." kept for want of a common
        // folder) cannot be written: the reader refuses such names.
        if (!safeName(name))
            throw tovan::Exception(kClass, "GetZippedWsdl", u"Unsafe entry name in the zipped WSDL bundle: %hs", name);
        zip_source_t* data = zip_source_buffer(zip.get(), d->bytes.data(), d->bytes.size(), 0);
        zip_int64_t index = data ? zip_file_add(zip.get(), name.c_str(), data, ZIP_FL_ENC_UTF_8) : -1;
        if (index < 0) {
            if (data) zip_source_free(data);
            throw tovan::Exception(kClass, "GetZippedWsdl", u"Unable to make a zip: %hs", zip_strerror(zip.get()));
        }
        zip_file_set_mtime(zip.get(), zip_uint64_t(index), kEntryTime, 0);
    }
    if (zip_close(zip.get()) < 0)
        throw tovan::Exception(kClass, "GetZippedWsdl", u"Unable to make a zip: %hs", zip_strerror(zip.get()));
    zip.release();  // closed
    zip_stat_t st;
    if (zip_source_open(target) < 0 || zip_source_stat(target, &st) < 0)
        throw tovan::Exception(kClass, "GetZippedWsdl", u"Unable to make a zip: %hs", zip_error_strerror(zip_source_error(target)));
    std::string out(size_t(st.size), '\0');
    zip_int64_t got = zip_source_read(target, out.data(), st.size);
    zip_source_close(target);
    if (got < 0 || zip_uint64_t(got) != st.size)
        throw tovan::Exception(kClass, "GetZippedWsdl", u"Unable to make a zip: %hs", zip_error_strerror(zip_source_error(target)));
    zipBytes = std::move(out);
}

}  // namespace nvk
