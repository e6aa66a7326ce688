// The spelling of places, and which reports belong to one.
#include "driver/explain.h"

#include <gtest/gtest.h>

#include "host/tokens.h"

namespace vesk::compiler {
namespace {

TEST(Explain, PlacesAreFileLineAndColumn) {
    const struct {
        const char* text;
        const char* place;
        int line, column;
    } cases[] = {
        {"a.vk:12", "a.vk", 12, 0},   {"a.vk:12:5", "a.vk", 12, 5}, {"/x/a.vk:1:1", "/x/a.vk", 1, 1},
        {"a:b.vk:7", "a:b.vk", 7, 0}, {"a:1:2:3", "a:1", 2, 3},     {"a.vk:2147483647", "a.vk", 2147483647, 0},
        {"3:4", "3", 4, 0},
    };
    for (const auto& [text, file, line, column] : cases) {
        const auto found = parseSourcePlace(text);
        ASSERT_TRUE(found) << text;
        EXPECT_EQ(found->file, file) << text;
        EXPECT_EQ(found->line, line) << text;
        EXPECT_EQ(found->column, column) << text;
        EXPECT_EQ(found->text(), text);
    }
    for (const char* text : {"", ":", "a.vk", "a.vk:", "a.vk:x", "a.vk:0", "a.vk:-1", "a.vk:1x", ":3",
                             "a.vk:2147483648", "a.vk:99999999999999999999"}) {
        EXPECT_FALSE(parseSourcePlace(text)) << text;
    }
}

ResolutionReport reportAt(const char* name, int line, int column, const char* file = "/p/a.vk") {
    ResolutionReport report;
    report.method = name;
    report.token = std::make_shared<Token>(nullptr, TokenType::Identifier, name, line, column);
    report.token->setFilename(file);
    return report;
}

TEST(Explain, ReportsOfAPlaceStandInOrderAndOnce) {
    std::vector<ResolutionReport> reports{reportAt("second", 3, 20), reportAt("first", 3, 5), reportAt("first", 3, 5),
                                          reportAt("other", 4, 5), reportAt("file", 3, 5, "/p/b.vk")};
    reports.push_back(reportAt("first", 3, 5));
    reports.back().argumentTypes = {"Int"};  // another specialization of the body that holds the call
    const auto names = [&](int line, int column) {
        std::vector<std::string> found;
        for (const ResolutionReport* report : reportsAt({"/p/a.vk", line, column}, reports))
            found.push_back(report->method);
        return found;
    };
    using Names = std::vector<std::string>;
    EXPECT_EQ(names(3, 0), (Names{"first", "first", "second"}));
    EXPECT_EQ(names(3, 5), (Names{"first", "first"}));
    EXPECT_EQ(names(3, 9), (Names{"first", "first"}));
    EXPECT_EQ(names(3, 10), Names{});
    EXPECT_EQ(names(3, 25), Names{"second"});
    EXPECT_EQ(names(5, 0), Names{});
}

}  // namespace
}  // namespace vesk::compiler
