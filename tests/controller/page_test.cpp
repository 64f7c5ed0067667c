#include "controller/http/page.h"

#include "tests/support/support.h"

namespace {

std::string header_of(const http::Response &response, const std::string &name) {
    for (const auto &[known, value] : response.headers) {
        if (known == name) {
            return value;
        }
    }
    return "";
}

http::Request get(const std::string &path) {
    http::Request request;
    request.method = "GET";
    request.path = path;
    return request;
}

class Page : public testing::Test {
  protected:
    void SetUp() override {
        if (http::page_files().empty()) {
            GTEST_SKIP() << "this build carries no page";
        }
    }
};

TEST_F(Page, IsWhatEveryViewGets) {
    const auto front = http::page(get("/"));
    ASSERT_TRUE(front);
    EXPECT_EQ(header_of(*front, "cache-control"), "no-cache");
    EXPECT_EQ(header_of(*front, "content-encoding"), "gzip");
    for (const char *view : {"/devices", "/devices/NX.1/charts", "/sites/7/configuration"}) {
        const auto page = http::page(get(view));
        ASSERT_TRUE(page) << view;
        EXPECT_EQ(page->body, front->body) << view;
    }
}

TEST_F(Page, LeavesWhatIsNoFileToTheApi) {
    for (const char *path : {"/api/v1/nothing", "/assets/gone-0123456789.js", "/assets/"}) {
        EXPECT_FALSE(http::page(get(path))) << path;
    }
    http::Request request = get("/devices");
    request.method = "POST";
    EXPECT_FALSE(http::page(request));
}

TEST_F(Page, IsNotSentAgainToABrowserThatHasIt) {
    for (const http::PageFile &file : http::page_files()) {
        http::Request request = get(std::string(file.path));
        request.headers["if-none-match"] = file.etag;
        const auto answer = http::page(request);
        ASSERT_TRUE(answer) << file.path;
        EXPECT_EQ(answer->status, 304);
        EXPECT_TRUE(answer->body.empty());
        request.headers["if-none-match"] = "\"another\"";
        EXPECT_EQ(http::page(request)->status, 200);
    }
}

}  // namespace
