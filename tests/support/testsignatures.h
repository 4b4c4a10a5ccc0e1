#pragma once

#include <QByteArray>
#include <QString>

/// What the tests detect, and with what.
namespace TestSignatures
{
/// The full path of "test-5.cvd" or "test-6.cvd". Both find the EICAR file and clam.exe; only the second
/// finds `klez`. They are the signed ones of TVFILEMON_TEST_SIGNATURES, by default of
/// ../shared/testdata/signatures beside the source; where that directory is missing they are unsigned ones
/// made for this run.
QString path(const QString& name);

/// Puts the database called `name` into the installation's database directory as `installedName`.
bool install(const QString& name, const QString& installedName);
/// Empties that directory, and makes it when missing.
bool removeAll();

/// The 68 bytes that every scanner agrees to detect.
QByteArray eicar();
/// The pattern of "Win.Worm.Klez-1".
QByteArray klez();
} // namespace TestSignatures
