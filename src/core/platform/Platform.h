#pragma once

#include "platform/Profile.h"
#include "scan/DiskScanner.h"

#include <memory>
#include <string>
#include <vector>

// The platform seam: what the program asks of the system it runs on. Answered by the platform library
// (src/platform), which the build picks for the system; the engine only declares the questions.
namespace brenvo::platform {

// Demonstration mode: BRENVO_DEMO is set in the environment. Fixed for the life of the process.
bool isDemo();

// The profile in force, chosen once: demonstration mode always has the Mac profile over the demo home;
// otherwise BRENVO_PROFILE=mac|linux (tests point HOME at a fixture), else the running system's own.
const Profile& profile();

// What a scan needs of the system: the profile's package extensions and iCloud path, and the file
// systems not to enter.
ScanEnvironment scanEnvironment();

// The system-specific answers.
std::string homeDirectory();              // the user's home, real and standardised
Profile systemProfile(const std::string& home);
std::shared_ptr<const MountRules> mountRules();

// The user's other disks: writable, browsable mounts other than "/", in the system's order.
std::vector<std::string> mountedDisks();

} // namespace brenvo::platform
