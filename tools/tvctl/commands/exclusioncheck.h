#pragma once

#include <QString>
#include <QStringList>

#include <string>

/// The store's lists of exclusions.
enum class ExclusionList
{
    /// Consulted by the service before each scan.
    Files = 0,
    /// For programs that walk through directories; not consulted by the service.
    Directories = 1,
    /// Consulted by nobody here.
    Other = 2
};

/// Why `path`, made from `argument` of the command line, may never match what is scanned when it stands in
/// `list`, each in a line for people: exclusions are compared as whole texts with the path of the file. Looks
/// at the file system and changes nothing.
QStringList exclusionWarnings(ExclusionList list, const std::string& argument, const QString& path,
                              const QStringList& watchedRoots);
