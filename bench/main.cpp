#include <QApplication>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "BenchRegistry.h"
#include "Hlx/QuotesVersion.h"

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::printf("%s\n", Hlx::quotesVersionLine("quotes-bench").c_str());
        return 0;
    }
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    // quotes-bench [GROUP] [--seconds N]: N shortens the timed figures for a quick run.
    const char* only = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--seconds") == 0 && i + 1 < argc)
            setBenchSeconds(std::atof(argv[++i]));
        else
            only = argv[i];
    }
    bool ran = false;
    for (const BenchGroup& group : benchGroups()) {
        if (only && group.name != only)
            continue;
        group.run();
        ran = true;
    }
    if (!ran) {
        std::fprintf(stderr, "quotes-bench: no group named %s\n", only ? only : "");
        return 2;
    }
    return 0;
}
