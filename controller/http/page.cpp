#include "controller/http/page.h"

#include <algorithm>

namespace http {
namespace {

/** The page for every view, an asset for its path alone; null for none. */
const PageFile *file_of(const std::string &path) {
    const bool asset = path.starts_with("/assets/");
    const std::span<const PageFile> files = page_files();
    const auto file = std::ranges::find(files, asset ? path : "/", &PageFile::path);
    return file == files.end() || path.starts_with("/api/") ? nullptr : &*file;
}

}  // namespace

std::optional<Response> page(const Request &request) {
    if (request.method != "GET" && request.method != "HEAD") {
        return std::nullopt;
    }
    const PageFile *file = file_of(request.path);
    if (file == nullptr) {
        return std::nullopt;
    }
    Response response;
    const bool asset = file->path != "/";
    response.headers = {
        {"etag", std::string(file->etag)},
        {"vary", "accept-encoding"},
        {"cache-control", asset ? "public, max-age=31536000, immutable" : "no-cache"}};
    if (request.header("if-none-match") == file->etag) {
        response.status = 304;
        return response;
    }
    response.headers.emplace_back("content-type", file->type);
    response.headers.emplace_back("content-encoding", "gzip");  // which every browser takes
    response.body.assign(reinterpret_cast<const char *>(file->bytes), file->size);
    return response;
}

}  // namespace http
