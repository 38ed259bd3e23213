#pragma once

#include <QStringList>

#include <functional>
#include <string_view>
#include <vector>

// One sub-command of tavelquiston-cli. `run` gets the arguments after the command's name and
// returns the exit status: 0 success, 1 failure while working, 2 bad usage or bad input.
struct CliCommand {
    std::string_view name;
    std::string_view usage;
    std::string_view summary;
    std::function<int(const QStringList& arguments)> run;
};

// Every command the program knows, in the order `help` lists them.
const std::vector<CliCommand>& cliCommands();

// Parses the command line and runs the chosen command.
int runCli(int argc, char** argv);
