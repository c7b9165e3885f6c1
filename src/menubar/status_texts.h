#pragma once

#include <QString>

#include "shared/rates.h"

// Texts and tests shared by the status item and the menu.

/// "↓ <down>   ↑ <up>" with both rates formatted.
QString rateLine(const Shared::Rates& rates);

/// Fresh rates with either direction above zero.
bool transferring(const Shared::Rates& rates);

/// The time of day of a moment in the user's locale, short style ("14:05", "2:05 PM").
QString shortTime(double secondsSince1970);
