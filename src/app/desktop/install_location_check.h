#pragma once

/// Refuses to run a copy from a disk image or a temporary download location: when
/// VaskelHost::installLocationProblem() gives a reason, shows it in an alert ("Show Applications
/// Folder" reveals /Applications in the file manager) and gives true, meaning the application
/// must end. Gives false, showing nothing, when the copy is fine. Needs a QApplication.
bool refuseBadInstallLocation();
