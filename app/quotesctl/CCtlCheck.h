#pragma once

#include <QStringList>

#include "CCtlCommand.h"

class CCtlArguments;
class CCtlGlobals;

// The checks of a command line that the command table drives, before any database is touched:
// each throws CCtlError naming the first fault. A command's own check calls them in its order.
class CCtlCheck {
public:
    // The checks of most commands: arity, presence, values.
    static void standard(const CCtlCommand& command, const CCtlArguments& arguments,
                         const CCtlGlobals& globals);
    // As many positional arguments as the command takes.
    static void arity(const CCtlCommand& command, const CCtlArguments& arguments);
    // The required options (outside alternatives) given, the refused ones not.
    static void presence(const CCtlCommand& command, const CCtlArguments& arguments);
    // Each value fits its option's kind (in the registry's order), each source id is a number.
    static void values(const CCtlCommand& command, const CCtlArguments& arguments);
    // Of two sets of alternative options, the one chosen by its first option (else the first
    // set) is complete and the other one not used.
    static void alternatives(const CCtlCommand& command, const CCtlArguments& arguments);
    static void exclusive(CCtlOption::Id first, CCtlOption::Id second,
                          const CCtlArguments& arguments);
    // Whether any option the command documents or hides is given (what a modify changes).
    static bool namesAnOption(const CCtlCommand& command, const CCtlArguments& arguments);

    // At most one input of the whole command line reads standard input.
    static void inputs(const CCtlCommand& command, const CCtlArguments& arguments,
                       const CCtlGlobals& globals);
    // The secrets the command line exposes, in the order they are warned about.
    static QStringList warnings(const CCtlCommand& command, const CCtlArguments& arguments,
                                const CCtlGlobals& globals);
};
