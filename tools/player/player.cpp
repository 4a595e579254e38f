// Plays sound files through the engine, prints what their headers say, or converts one.
#include <csignal>
#include <cstdio>

#include "audio/mod.h"
#include "audio/mod_mixer.h"
#include "tools/common/guard.h"
#include "tools/player/convert.h"
#include "tools/player/info.h"
#include "tools/player/list.h"
#include "tools/player/options.h"
#include "tools/player/play.h"
#include "tools/player/terminal.h"

// Prints a file's facts, in words or as a line of JSON, which also lists files that cannot be
// opened. Returns whether it was opened.
static bool PrintInfo(const std::string &file, const OPTIONS &options)
{
    PLAYER_SOUND sound;
    const std::string reason = Player_Open(file, options.Settings, sound);
    if (!reason.empty())
        Play_Report(file, reason);
    if (options.JSON)
        std::puts((reason.empty() ? Info_JSON(sound) : Info_JSON(file, reason)).c_str());
    else if (reason.empty())
        std::fputs(Info_Text(sound).c_str(), stdout);
    return reason.empty();
}

static int Info(const OPTIONS &options)
{
    int status = 0;
    for (const std::string &file : options.Files)
        if (!PrintInfo(file, options))
            status = Options_Failure;
    return Options_Printed(status);
}

static int Convert(OPTIONS &options)
{
    options.Settings.Deep =
        options.Bits == "24" || options.Bits == "32" || options.Bits == "float" || options.Dither;
    options.Settings.Real = options.Bits == "float" && options.Hz == 0;
    const PLAYER_TERMINAL terminal(-1);
    const std::string &in = options.Files[0], &out = options.Files[1];
    PLAYER_SOUND sound;
    std::string reason = Player_Open(in, options.Settings, sound);
    if (reason.empty())
        reason = Player_WhySilent(sound);
    if (!reason.empty()) {
        Play_Report(in, reason);
        return Options_Failure;
    }
    if (!sound.Incomplete.empty())
        Play_Report(in, sound.Incomplete);
    SAMPLES_FORMAT to = Player_Format(sound);
    if (options.Hz != 0)
        to.Hz = options.Hz;
    to.Dither = options.Dither;
    to.Float = options.Bits == "float";
    if (!options.Bits.empty())
        to.Bits = to.Float ? 32 : static_cast<uint32_t>(std::stoul(options.Bits));
    reason = Player_Convert(sound, options.Passes, to, out);
    if (!reason.empty())
        Play_Report(sound.Track->Error != 0 ? in : out == "-" ? "standard output" : out, reason);
    return reason.empty() ? 0 : Options_Failure;
}

// How modules opened from now on are rendered.
static void SetModules(const OPTIONS &options)
{
    const std::pair<const char *, MOD_INTERPOLATION> kinds[] = {
        {"nearest", MOD_NEAREST}, {"linear", MOD_LINEAR}, {"cubic", MOD_CUBIC}, {"sinc", MOD_SINC}};
    for (const auto &[name, kind] : kinds)
        if (options.Interpolation == name)
            MOD_Interpolation = kind;
    MOD_Separation = static_cast<uint8_t>(options.Separation);
}

static int Run(OPTIONS &options)
{
    SetModules(options);
    Audio_Rules = options.Framework ? AUDIO_RULES_FRAMEWORK : AUDIO_RULES_FORMAT;
    if (options.Devices)
        return Play_ListDevices();
    if (options.Convert)
        return Convert(options);
    bool listed = true;
    options.Files = List_Files(options.Files, options.Recursive,
                               [&listed](const std::string &path, const std::string &reason) {
                                   Play_Report(path, reason);
                                   listed = false;
                               });
    const int status = options.Info ? Info(options) : Play_Files(options);
    return listed || status != 0 ? status : Options_Failure;
}

int main(int argc, char **argv)
{
    const int status = Guard_Run("tessplay", [&] {
        OPTIONS options;
        const std::optional<int> answered = Options_Read(argc, argv, options);
        return answered ? *answered : Run(options);
    });
    if (const int signal = Terminal_Signal()) {
        std::signal(signal, SIG_DFL);
        std::raise(signal);
    }
    return status;
}
