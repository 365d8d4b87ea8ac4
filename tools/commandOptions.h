// Options that several commands of mosa-wall have.
#pragma once

#include "tools/command.h"

#include "tools/wallJob.h"

/// A size that reads like 4x2; each of its numbers is at least `least`.
CLI::Option* addSize(CLI::App& command, const std::string& name, Size& size,
                     const std::string& about, int least = 1);

/// Millimetres that read like 12x14.5.
CLI::Option* addMeasure(CLI::App& command, const std::string& name, Measure& size,
                        const std::string& about);

/// The wall's file, with or without --wall, and the host file.
void addWall(CLI::App& command, std::string& wall);
void addHosts(CLI::App& command, std::string& hosts);

void addPlain(CLI::App& command, bool& plain);

/// Where it stands on the wall, and how it is called.
void addAt(CLI::App& command, AtOptions& options, std::string& name);

/// What becomes of the displays before and after a job.
void addDisplays(CLI::App& command, DisplayOptions& options);

/// --dry-run and --force.
void addJobFlags(CLI::App& command, JobOptions& options);

/// What is captured of a program, and for how long.
void addCapture(CLI::App& command, LiveOptions& options);

/// How its picture stands on a wall, and how long it waits for one.
void addFit(CLI::App& command, LiveOptions& options);

/// Refuses options that would not be honoured.
void refuse(const CLI::App& command, const std::vector<const char*>& names, const char* why);

/// Options of running programs go with one alone, and a recording, which `streams` names, does not
/// go with one.
void requireOneKind(const CLI::App& command, const Program& program, const char* streams);
