#pragma once

#include <QString>
#include <QVector>

/// What one check came to.
struct Finding
{
    enum class Result
    {
        Ok,
        /// Worth a look, or it could not be checked.
        Warning,
        /// Somebody is unprotected, or will be, and nothing else says so.
        Failed
    };

    static Finding ok(const QString& name, const QString& seen)
    {
        return {name, Result::Ok, seen, {}};
    }
    static Finding warning(const QString& name, const QString& seen, const QString& fix)
    {
        return {name, Result::Warning, seen, fix};
    }
    static Finding failed(const QString& name, const QString& seen, const QString& fix)
    {
        return {name, Result::Failed, seen, fix};
    }
    /// For what only root may see.
    static Finding notChecked(const QString& name)
    {
        return warning(name, QStringLiteral("not checked: only root may see it"),
                       QStringLiteral("sudo tvctl doctor"));
    }

    /// Of the check, the same in all releases.
    QString name;
    Result result = Result::Ok;
    /// The following two are for people. They may hold names that are other people's.
    QString seen;
    /// What to do about it; empty for Ok.
    QString fix;
};

using Findings = QVector<Finding>;
