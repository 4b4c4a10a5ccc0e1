#pragma once

#include "common/uniquefd.h"

#include <QByteArray>

/// The files that sweeps keep between them, in the settings directory: private, and no links are followed.
///
/// Operations set errno when they fail.
class StateDirectory
{
public:
    /// Takes hold of the directory. Not valid when there is none.
    explicit StateDirectory(const QByteArray& path);

    bool isValid() const
    {
        return m_directory.isValid();
    }

    /// Makes sure that nobody else holds the file `name`, until this object goes. Does not wait: EWOULDBLOCK
    /// when somebody does.
    bool lock(const QByteArray& name);

    /// The whole content of `name`; empty when there is nothing that can be read.
    QByteArray read(const QByteArray& name) const;

    /// Puts `content` in the place of `name`, all or nothing, also when the machine goes down.
    bool replace(const QByteArray& name, const QByteArray& content) const;

    /// Opens `name` for appending behind its first `size` bytes, with nothing behind; makes it.
    UniqueFd openForAppending(const QByteArray& name, qint64 size) const;

    /// Opens `name` for being written over from its beginning; makes it.
    UniqueFd openForRewriting(const QByteArray& name) const;

    void remove(const QByteArray& name) const;

    /// Writes all of `bytes`.
    static bool write(const UniqueFd& file, const QByteArray& bytes);

private:
    UniqueFd open(const QByteArray& name, int flags) const;

    UniqueFd m_directory;
    UniqueFd m_lock;
};
