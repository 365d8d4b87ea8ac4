// Every operation's name, and the length of every argument block.
#include "support/serverState.h"

#include <zlib.h>

#include <algorithm>
#include <fstream>
#include <set>

namespace {

struct Row {
    std::string kind;
    int bytes;
    int opcode;
};

// The rows of data/recordSizes.txt; a line that begins with a blank goes on with the one before.
std::vector<Row> readRows()
{
    std::vector<Row> rows;
    std::ifstream file(TEST_DATA "/recordSizes.txt");
    Row row{};
    for (std::string line; std::getline(file, line);) {
        if (line[0] == '#')
            continue;
        std::istringstream words(line);
        if (line[0] != ' ')
            words >> row.kind >> row.bytes;
        for (std::string range; words >> range;) {
            const std::size_t dash = range.find('-');
            const int last = std::stoi(dash == range.npos ? range : range.substr(dash + 1));
            for (row.opcode = std::stoi(range); row.opcode <= last; ++row.opcode)
                rows.push_back(row);
        }
    }
    return rows;
}

TEST(Records, NamesStandAtTheirOpcodes)
{
    // The checksum of all names in order, a line each, as client and server have agreed on them.
    std::string all = opNames[0];
    for (int op = 1; op < operationCount; ++op)
        all += std::string("\n") + opNames[op];
    EXPECT_EQ(crc32(0, reinterpret_cast<const Bytef*>(all.data()), static_cast<uInt>(all.size())),
              0xf4c86db9U);
    EXPECT_EQ(std::set<glBufOp>(glWrappers, glWrappers + operationCount).size(), 1238U)
        << "decoders are shared";
}

TEST(Records, HaveTheirLengthsAndArePerformedOnce)
{
    startWithoutOverloads();
    const std::vector<Row> rows = readRows();
    ASSERT_EQ(rows.size(), 546U + 176 + 127 + 264);
    std::set<int> seen;
    for (const Row& row : rows) {
        const std::string name = opNames[row.opcode];
        EXPECT_TRUE(seen.insert(row.opcode).second) << name;
        Bytes buffer;
        appendLittleEndian(buffer, static_cast<unsigned>(row.opcode), 2);
        buffer.resize(buffer.size() + static_cast<std::size_t>(row.bytes));
        const bool called = row.kind == "scalars" || row.kind == "arrays";
        const std::string message = row.kind == "refused" ? "Attention MOSA: local op " + name +
                                                                " should not be found on wire\n"
                                                          : "";
        // Two records: one too long or too short would derail the second.
        Bytes twice = buffer;
        twice.insert(twice.end(), buffer.begin(), buffer.end());
        const Outcome outcome = run(twice);
        EXPECT_EQ(outcome.result, 1) << name;
        EXPECT_EQ(outcome.messages, message + message) << name;
        const std::string& calls = outcome.calls;
        EXPECT_EQ(std::count(calls.begin(), calls.end(), '\n'), called ? 2 : 0) << name;
        EXPECT_TRUE(!called || calls.rfind(name, 0) == 0) << name;
        if (row.bytes > 0) {
            buffer.pop_back();
            EXPECT_EQ(run(buffer), (Outcome{0, "", pastEnd})) << name;
        }
    }
}

// Operations whose last parameter is an array as long as the parameter's name says.
TEST(Records, ParameterArraysAreAsLongAsTheNameSays)
{
    const struct {
        std::string operations;
        int scalars; // bytes before the array, the name last
        int bytes;   // of the array, with this name
        int name;
        int otherwise = 0; // with a name that is not listed
    } rows[] = {
        {"glLightfv glLightiv", 8, 12, 0x1204},
        {"glLightModelfv glLightModeliv", 4, 16, 0xB53},
        {"glMaterialfv glMaterialiv", 8, 12, 0x1603},
        {"glTexGendv", 8, 32, 0x2501},
        {"glTexGenfv glTexGeniv", 8, 16, 0x2501},
        {"glTexEnvfv glTexEnviv", 8, 16, 0x2201},
        {"glTexParameterfv glTexParameteriv", 8, 16, 0x1004},
        {"glFogfv glFogiv", 4, 16, 0xB66},
        {"glConvolutionParameterfv glConvolutionParameteriv", 8, 16, 0x8014},
        {"glPointParameterfv glPointParameteriv glPointParameterfvEXT", 4, 12, 0x8129},
        {"glPixelTransformParameterivEXT glPixelTransformParameterfvEXT", 8, 4, 0x8331, 4},
        {"glCombinerParameterfvNV glCombinerParameterivNV", 4, 16, 0x852A},
    };
    startWithoutOverloads();
    for (const auto& row : rows) {
        std::istringstream operations(row.operations);
        for (std::string op; operations >> op;) {
            const auto record = [&](int name, int bytes) {
                return op + " z:" + std::to_string(row.scalars - 4) + " i:" + std::to_string(name) +
                       " z:" + std::to_string(bytes) + " glEnd";
            };
            const Outcome outcome = run(record(row.name, row.bytes));
            EXPECT_EQ(outcome.messages, "") << op;
            EXPECT_TRUE(outcome.calls.ends_with("\nglEnd\n")) << outcome;
            // Performed all the same, with what stands behind the name.
            EXPECT_EQ(run(record(0x120A, row.otherwise)),
                      (Outcome{1, op + (row.scalars == 8 ? " 0" : "") + " 0x120a ptr\nglEnd\n",
                               "Attention MOSA: unknown enum in " + op + "\n"}));
        }
    }
}

} // namespace
