#pragma once

#include <QString>

/// A request taken apart.
struct ClientRequest
{
    /// As it came, line ends included.
    QString command;
    /// Everything behind the first space, without carriage returns and line feeds.
    QString argument;
};

/// What a command asks for.
enum class ClientCommand
{
    Module,
    Scan,
    Clean,
    ScanUrl,
    ScanIoc,
    ReloadDb,
    ReloadSettings,
    ReloadIocDb,
    ReloadIocSettings,
    Invalid
};

/// Splits `message` at its first space. One without a space, or that begins with one, is all command. Any
/// text will do; pure.
ClientRequest parseRequest(const QString& message);

/// What `command` stands for, whatever its letter case. The reloads are known by their beginning, so line
/// ends and anything else behind them do no harm; the others must be the whole text. Pure.
ClientCommand commandOf(const QString& command);

/// Whether only a client that gave its module name may use `command`.
bool needsRegistration(ClientCommand command);
