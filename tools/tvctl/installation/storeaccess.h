#pragma once

#include "tvctl/installation/installation.h"

#include <QString>

/// Makes sure that the stores of an installation are there and can be used, before a command believes what
/// they answer: the library's getters answer defaults for a store that cannot be read.
///
/// Throws ToolError with what to do about it.
namespace StoreAccess
{
/// Makes the store library work on `installation`, and keeps what it has to say for the messages below. Once,
/// before anything else.
void begin(const Installation& installation);

/// The settings, exclusions and hash lists can be read.
void requireSettings(const Installation& installation);

/// What was read from the settings just now is what is stored, and not what the library answers instead.
void confirmSettings(const Installation& installation);

/// The detection records can be read.
void requireReports(const Installation& installation);

/// What the store library said last and nobody has been told yet ("... is damaged; set aside as ...");
/// empty when there is nothing.
QString takeMessage();

/// The error for what could not be read.
QString notRead(const QString& what);

/// The error for a change that could not be written.
QString notWritten(const QString& what);

/// The end of a message about what may have failed for lack of privileges; empty for root.
QString privilegeHint();
} // namespace StoreAccess
