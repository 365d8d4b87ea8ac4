// Entries of the wall configuration file.
#include "support/serverState.h"

#include "coding/display/wallFile.h"

#include <sstream>

namespace {

TEST(WallFile, AnEntryIsANameAndUpToSixNumbers)
{
    const std::pair<const char*, const char*> cases[] = {
        {":0.0 800 300 400 0 400 300", ":0.0, screen 0, 6: 800 300 400 0 400 300"},
        {"  host.domain:0.2\t8 3 0.5 -1.25 4.5e1 3",
         "host.domain:0.2, screen 2, 6: 8 3 0.5 -1.25 45 3"},
        {":7 ", ":7, screen 0, 0: 0 0 0 0 0 0"},
        {":7 800 x 10", ":7, screen 0, 1: 800 0 0 0 0 0"},
        {":7 800 300 1 2 3 4 5 # more\r", ":7, screen 0, 6: 800 300 1 2 3 4"},
        {":7\r", ":7, screen 0, 0: 0 0 0 0 0 0"},
    };
    for (const auto& [line, expected] : cases) {
        WallEntry entry;
        ASSERT_TRUE(parseWallEntry(line, entry)) << line;
        const auto& [x, y, w, h] = entry.rect;
        std::ostringstream text;
        text << entry.dpyName << ", screen " << entry.scrn << ", " << entry.numbers << ": "
             << entry.vWidth << " " << entry.vHeight << " " << x << " " << y << " " << w << " "
             << h;
        EXPECT_EQ(text.str(), expected);
    }
    WallEntry entry;
    EXPECT_FALSE(parseWallEntry("display 800 300", entry));
    EXPECT_FALSE(parseWallEntry("", entry));
    EXPECT_TRUE(parseWallEntry(std::string(100000, 'h') + ":0.1 5", entry));
    EXPECT_EQ(entry.scrn * 10 + entry.vWidth, 15);
}

} // namespace
