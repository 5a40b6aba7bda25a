#include "operations/OperationCodes.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"

namespace corvane {

// The order of the rows is the order in which rejected ones are reported.
const _ZELPrivilegedOperationDescription ZELPrivilegedOperationSetVNT::staticCatalogue[] = {
    {codeNop, "nop", 0, 0, 0, 0, nullptr,
     "Vantor likes to perform an empty operation to contact its privileged component."},
    {codeDiscardAuth, "discard-auth", 0, 0, 0, 0, nullptr,
     "Vantor likes to enforce that future privileged commands require new authorization."},
    {codeDeleteFiles, "delete-files", 1, 0, 0, ZELVariableArgumentCount, nullptr,
     "Vantor likes to delete files of the privileged auxiliary program."},
    {codePrepareUninstall, "prepare-uninstall", 1, 0, 0, 0, nullptr,
     "Vantor likes to prepare the privileged auxiliary program for removal."},
    {codePerformUninstall, "perform-uninstall", 1, 0, 0, 3, "NSS",
     "Vantor likes to uninstall the privileged auxiliary program."},
    {codeDeleteFileobjects, "delete-fileobjects", 1, 1, 0, ZELVariableArgumentCount, nullptr,
     "Vantor likes to delete file system objects independent of their permission settings."},
    {codeModifyPreferences, "modify-preferences", 1, 0, 0, 5, "SSSSS",
     "Vantor likes to change a preference value affecting a different user or all users."},
    {codeExecuteUtility, "execute-utility", 1, 0, 1, ZELVariableArgumentCount, nullptr,
     "Vantor likes to run a utility program of the operating system."},
    {ZELEndOfDescriptions, nullptr, 0, 0, 0, 0, nullptr, nullptr},
};

}  // namespace corvane
