/**
 * The page: its files, and which of them a browser gets.
 */
#ifndef CONTROLLER_HTTP_PAGE_H
#define CONTROLLER_HTTP_PAGE_H

#include <span>
#include <string_view>

#include "controller/http/message.h"

namespace http {

struct PageFile {
    std::string_view path; /**< "/", or "/assets/..." with the content's hash in it */
    std::string_view type;
    std::string_view etag;
    const unsigned char *bytes; /**< compressed with gzip */
    size_t size;
};

/** Made by the build of console/; none when the program is built without it. */
std::span<const PageFile> page_files();

/** The file that a GET or HEAD gets: every path but those of assets is a view of the one
 *  page. None for other methods, for what is no file, and for the API's paths. */
std::optional<Response> page(const Request &request);

}  // namespace http

#endif
