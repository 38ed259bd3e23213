#include "cli/CliCommand.h"

#include "cli/AnalyzeCommand.h"
#include "cli/ComposeCommand.h"
#include "cli/EditCommand.h"
#include "cli/ExportCommand.h"
#include "cli/ListCommand.h"
#include "cli/MixCommand.h"
#include "cli/PlayCommand.h"
#include "cli/RecordCommand.h"
#include "cli/RecoverCommand.h"

// Each command lives in its own file; this table is the one place that lists them.
const std::vector<CliCommand>& cliCommands() {
    static const std::vector<CliCommand> commands = {
        analyzeCommand(), composeCommand(), exportCommand(), waveformCommand(), editCommand(),
        recordCommand(),  recoverCommand(), listCommand(),   mixCommand(),      playCommand(),
    };
    return commands;
}
