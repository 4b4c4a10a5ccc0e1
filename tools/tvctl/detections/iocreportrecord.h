#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <optional>

/// One line of a daily report of files that were on a list of known-bad hashes. A plain value.
struct IocReportRecord
{
    /// Takes the line apart, without its line feed. Nothing when it is none. Pure.
    ///
    /// Nothing is quoted in it. The path may hold commas and line ends, and a placeholder such as "%1" in it
    /// has taken in the value that belonged into a later column; that value is missing then.
    static std::optional<IocReportRecord> parse(const QByteArray& line);

    /// Whether a record can begin like this.
    static bool canBegin(const QByteArray& line);

    /// "deleted", "renamed", "allowed", or "reported" when nothing else is known.
    QString result() const;
    /// "SHA-256 ab12..." as far as known.
    QString hashText() const;

    QDateTime time;
    /// What is not in Latin-1 was written as a question mark.
    QString path;
    /// "ID", "IR", "IA" or empty.
    QString action;
    /// 4 MD5, 5 SHA-1, 6 SHA-256; 0 unknown.
    int hashKind = 0;
    QString hash;
};
