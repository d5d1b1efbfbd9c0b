#include <QApplication>
#include <cstdio>
#include <cstring>

#include "BenchRegistry.h"

int main(int argc, char** argv) {
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const char* only = argc > 1 ? argv[1] : nullptr;
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
