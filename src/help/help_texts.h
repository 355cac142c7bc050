#pragma once

#include <string>

namespace mvdirigo {

/// What the help screen says of its controls. Of a bar button without a description: nothing.
std::string helpOnLoadButton(int Index);
inline constexpr const char* kHelpOnSendCommand =
    "Click \"Send String\" to transmit the command string to the Motor Drive.";
inline constexpr const char* kHelpOnStringToSend =
    "Enter your command strings in these fields. Click \"Send String\" to transmit the string";
inline constexpr const char* kHelpOnReceiveString =
    "Responses from the motor drives will appear in these fields.";

}  // namespace mvdirigo
