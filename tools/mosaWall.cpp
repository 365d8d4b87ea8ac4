// mosa-wall: for the people who run a wall.
#include "tools/command.h"

#include "tools/process.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string_view>

namespace {

const WallCommand* const commands[] = {
    &layoutCommand,  &checkCommand, &runCommand,    &listCommand,    &statusCommand,
    &moveCommand,    &raiseCommand, &stopCommand,   &recordCommand,  &snapshotCommand,
    &patternCommand, &demoCommand,  &virtualCommand, &probeCommand};

// Names of the commands for people that fit, with commas between.
template <class Fits>
std::string namesOf(Fits fits, const char* beforeLast)
{
    std::vector<std::string> names;
    for (const WallCommand* command : commands)
        if (*command->about && fits(*command))
            names.emplace_back(command->name);
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i)
        text += (i == 0 ? "" : i + 1 == names.size() ? beforeLast : ", ") + names[i];
    return text;
}

// Usage lines that end with a program.
class UsageWithProgram : public CLI::Formatter {
public:
    explicit UsageWithProgram(TakesProgram takes) : takes_(takes) {}

    std::string make_usage(const CLI::App* command, std::string name) const override
    {
        std::string usage = CLI::Formatter::make_usage(command, name);
        usage.insert(usage.find_last_not_of('\n') + 1, takes_ == TakesProgram::always
                                                           ? " -- PROGRAM [ARGUMENT...]"
                                                           : " [-- PROGRAM [ARGUMENT...]]");
        return usage;
    }

private:
    TakesProgram takes_;
};

Action addCommand(CLI::App& app, const WallCommand& command)
{
    CLI::App* const added = app.add_subcommand(command.name, command.about);
    if (!*command.about)
        added->group("");
    if (command.takesProgram != TakesProgram::never)
        added->formatter(std::make_shared<UsageWithProgram>(command.takesProgram));
    return command.add(*added);
}

std::string failureMessage(const CLI::App* app, const CLI::Error& error)
{
    const bool extra = error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError);
    std::string name = app->get_name();
    for (const CLI::App* command : app->get_subcommands())
        name += " " + command->get_name();
    return "mosa-wall: " + std::string(error.what()) +
           (extra ? " (a program to run stands behind --)" : "") + "\n" + name +
           " --help says what there is.\n";
}

int refused(const std::string& why, int status)
{
    std::fprintf(stderr, "mosa-wall: %s\n", why.c_str());
    return status;
}

constexpr int tooMuch = static_cast<int>(CLI::ExitCodes::ExtrasError);
constexpr int tooLittle = static_cast<int>(CLI::ExitCodes::RequiredError);

// Does what the command line asks for.
int perform(CLI::App& app, const std::vector<Action>& actions, int argc, char** argv,
            const Program& program)
{
    app.parse(argc, argv);
    for (std::size_t i = 0; i < actions.size(); ++i) {
        if (!app.got_subcommand(commands[i]->name))
            continue;
        if (!program.empty() && commands[i]->takesProgram == TakesProgram::never)
            return refused(std::string(commands[i]->name) +
                               " takes no program: nothing may stand behind --; " +
                               namesOf(
                                   [](const WallCommand& command) {
                                       return command.takesProgram != TakesProgram::never;
                                   },
                                   " and ") +
                               " do",
                           tooMuch);
        const int status = actions[i](program);
        if (status < 0)
            dieOf(-status);
        return status;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    Program program;
    if (const auto dashes = std::find(argv, argv + argc, std::string_view("--"));
        dashes != argv + argc) {
        program.assign(dashes + 1, argv + argc);
        if (program.empty())
            return refused("no program stands behind --", tooLittle);
        argc = static_cast<int>(dashes - argv);
    }
    CLI::App app{"Lays out, checks and runs display walls.", "mosa-wall"};
    app.set_version_flag("--version", MOSA_VERSION);
    app.require_subcommand(1);
    app.failure_message(failureMessage);
    std::vector<Action> actions;
    for (const WallCommand* command : commands)
        actions.push_back(addCommand(app, *command));
    app.footer("mosa-wall COMMAND --help says more about a command.");
    const std::string_view first = argc > 1 ? argv[1] : "-";
    if (!first.starts_with('-') && std::ranges::none_of(commands, [first](const WallCommand* one) {
            return first == one->name;
        }))
        return refused("there is no command \"" + std::string(first) + "\"; the commands are " +
                           namesOf([](const WallCommand&) { return true; }, ", "),
                       tooMuch);
    try {
        return perform(app, actions, argc, argv, program);
    } catch (const CLI::Error& error) {
        return app.exit(error);
    } catch (const std::exception& fault) {
        return refused(fault.what(), 1);
    }
}
