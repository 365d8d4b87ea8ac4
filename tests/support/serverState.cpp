#include "support/serverState.h"
#include "coding/decoder.h"
#include "coding/serverProcess.h"

#include <algorithm>
#include <memory>

void startWithoutOverloads()
{
    resetRecorder();
    clearServerTables();
    keep_aspect_ratio = firsttime = 1;
    serverID = swapOnRetrace = xx = 0;
    std::ranges::copy(recordingTable, glOpTable);
}

void startServer()
{
    startWithoutOverloads();
    Overload(glOpTable);
}

std::ostream& operator<<(std::ostream& out, const Outcome& outcome)
{
    return out << "result " << outcome.result << "\ncalls:\n"
               << outcome.calls << "messages:\n"
               << outcome.messages;
}

std::string namesOf(const std::string& calls)
{
    std::string names;
    std::istringstream lines(calls);
    for (std::string line; std::getline(lines, line);)
        names += line.substr(0, line.find(' ')) + "\n";
    return names;
}

int walk(const Bytes& buffer)
{
    const std::unique_ptr<unsigned char[]> memory(new unsigned char[buffer.size() + 1]);
    std::ranges::copy(buffer, memory.get() + 1);
    return decoder(memory.get() + 1, static_cast<int>(buffer.size()));
}

Outcome run(const Bytes& buffer)
{
    recorder.calls.clear();
    testing::internal::CaptureStderr();
    Outcome outcome{};
    outcome.result = walk(buffer);
    outcome.messages = testing::internal::GetCapturedStderr();
    outcome.calls = takeCalls();
    return outcome;
}
