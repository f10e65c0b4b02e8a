#pragma once

#include <QCoreApplication>
#include <QString>
#include <QStringList>

#include <optional>
#include <variant>

// What the user asked for on the command line.
class CommandLine
{
    Q_DECLARE_TR_FUNCTIONS(CommandLine)

public:
    struct Options
    {
        bool start = false;                  // begin a session at launch
        bool headless = false;               // no window: cards to stdout, banners to stderr
        std::optional<double> stopAfter;     // seconds
        bool printInstructions = false;
        std::optional<QString> transcribe;   // a WAV to transcribe on the device
        bool transcribeWithService = false;  // …with the service's transcription endpoint instead
        bool nativeWayland = false;          // on Wayland, don't go through XWayland
        bool checkUpdates = false;           // ask PackageKit for a newer package, print the outcome
        bool installUpdate = false;          // …and install it
        bool demo = false;                   // a sample interview against a local stand-in
        std::optional<QString> review;       // a session's events log or transcript to review
    };

    // Print `text` (to stdout for help and version, to stderr for errors) and exit with `code`.
    struct Exit
    {
        int code = 0;
        QString text;
    };

    // `arguments` includes the program name first. Not a Result: an Exit is not always a
    // failure (--help and --version end the program normally, with code 0).
    static std::variant<Options, Exit> parse(const QStringList &arguments);
};
