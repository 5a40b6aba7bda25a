#include "operationset-vnt/OperationErrors.h"

namespace corvane {

constexpr OperationErrorText missingUtilityError = {
    1, "A required component of the operating system is missing in your system installation.",
    "Please verify that the UNIX program $1$ is present at its standard path '$2$'."};
constexpr OperationErrorText unsafeUtilityError = {
    2,
    "Permission settings for a system utility at the Unix level are unsafe. The command cannot be "
    "executed for security reasons.",
    "Please verify that the executable '$1$' and its parent folder are owned by the operating "
    "system and cannot be modified by any user."};
constexpr OperationErrorText failedRunError = {
    3, "It was not possible to complete the operation successfully.",
    "The operating system could not perform the requested operation. It returned error code $1$."};
constexpr OperationErrorText whiteoutError = {
    4, "It is not possible to delete a file system object of type 'whiteout'.",
    "Please check the type of the object located at '$1$'. Whiteouts cannot really exist in "
    "current versions of the operating system."};
constexpr OperationErrorText flagsError = {
    5, "The operating system could not change protection flags.",
    "Please check if the file system storing the object '$1$' is working properly."};
constexpr OperationErrorText singleUserModeError = {
    6, "Single User Mode is required to remove this object.",
    "The object located at '$1$' uses special protection which should only be deactivated when "
    "the system is not in full operation. Please restart the operating system in Single User Mode "
    "and remove the protection attribute."};
constexpr OperationErrorText preferencesWriteError = {
    7, "A preference setting could not be updated successfully.",
    "The operating system was unable to change a preference setting. Please ensure to "
    "authenticate as administrator."};
constexpr OperationErrorText integrityProtectionError = {
    8, "Your computer is protecting this file system object.",
    "The object at '$1$' cannot be modified because System Integrity Protection is active on this "
    "computer. It might be possible to deactivate this feature by changing a hardware setting via "
    "the recovery operating system. Please see the reference manual for more information."};

std::span<const OperationErrorText* const> operationErrorTexts() {
  static constexpr const OperationErrorText* texts[] = {&missingUtilityError,
                                                        &unsafeUtilityError,
                                                        &failedRunError,
                                                        &whiteoutError,
                                                        &flagsError,
                                                        &singleUserModeError,
                                                        &preferencesWriteError,
                                                        &integrityProtectionError};
  return texts;
}

}  // namespace corvane
