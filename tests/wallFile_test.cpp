// Entries of the wall configuration file.
#include "support/serverState.h"

#include "coding/wallFile.h"

#include <array>
#include <sstream>

namespace {

TEST(WallFile, CommentsAndBlankLinesAreNotCounted)
{
    std::istringstream file("# a wall\n\n \t\n:0 1 2\n   # indented\n\t:1.2 3\n\r\n:2");
    const std::vector<WallLine> lines = readWallLines(file);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].text + "|" + lines[1].text + "|" + lines[2].text, ":0 1 2|\t:1.2 3|:2");
    EXPECT_EQ(lines[0].number * 100 + lines[1].number * 10 + lines[2].number, 400 + 60 + 8);
    std::istringstream again(":0\n:1\n:2\n");
    EXPECT_EQ(readWallLines(again, 2).size(), 2U);
}

TEST(WallFile, AnEntryIsANameAndUpToSixNumbers)
{
    const struct {
        const char *line, *name;
        int screen, numbers;
        std::array<float, 6> values;
    } cases[] = {
        {":0.0 800 300 400 0 400 300", ":0.0", 0, 6, {800, 300, 400, 0, 400, 300}},
        {"  host.domain:0.2\t8 3 0.5 -1.25 4.5e1 3",
         "host.domain:0.2",
         2,
         6,
         {8, 3, 0.5F, -1.25F, 45, 3}},
        {":7 ", ":7", 0, 0, {}},
        {":7 800 x 10", ":7", 0, 1, {800}},
        {":7 800 300 1 2 3 4 5 # more\r", ":7", 0, 6, {800, 300, 1, 2, 3, 4}},
        {":7\r", ":7", 0, 0, {}},
    };
    for (const auto& c : cases) {
        WallEntry entry;
        ASSERT_TRUE(parseWallEntry(c.line, entry)) << c.line;
        EXPECT_EQ(entry.dpyName, c.name);
        EXPECT_EQ(entry.scrn, c.screen) << c.line;
        EXPECT_EQ(entry.numbers, c.numbers) << c.line;
        const auto& [x, y, w, h] = entry.rect;
        EXPECT_EQ((std::array{static_cast<float>(entry.vWidth), static_cast<float>(entry.vHeight),
                              x, y, w, h}),
                  c.values)
            << c.line;
    }
    WallEntry entry;
    EXPECT_FALSE(parseWallEntry("display 800 300", entry));
    EXPECT_FALSE(parseWallEntry("", entry));
    EXPECT_TRUE(parseWallEntry(std::string(100000, 'h') + ":0.1 5", entry));
    EXPECT_EQ(entry.scrn * 10 + entry.vWidth, 15);
}

} // namespace
