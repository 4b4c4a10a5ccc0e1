#include "tvctl/commands/iocimportcommand.h"

#include "common/checkedfile.h"
#include "common/filename.h"
#include "tvctl/commands/commandpath.h"
#include "tvctl/commands/importtarget.h"
#include "tvctl/commands/servicereload.h"
#include "tvctl/commands/session.h"
#include "tvctl/commands/standardinput.h"
#include "tvctl/console/interruption.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/printable.h"
#include "tvctl/console/progress.h"
#include "tvctl/hashlists/hashcollector.h"
#include "tvctl/hashlists/hashlistimport.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>

#include <memory>
#include <numeric>
#include <string>
#include <vector>

namespace
{
struct ImportOptions
{
    std::vector<std::string> files;
    std::string format = "auto";
    bool isDryRun = false;
    bool isIgnoringToIds = false;
    bool isWithoutReload = false;
};

/// The store reads a list anew for each piece that it adds, and a piece is in memory as a whole.
constexpr int pieceSize = 200000;
constexpr int shownRejections = 20;

QString standardInputName()
{
    return QStringLiteral("-");
}

/// Whole paths, or the name of standard input.
QStringList pathsToRead(const ImportOptions& options)
{
    QStringList paths;
    for (const std::string& file : options.files) {
        paths += standardInputName() == QLatin1String(file.c_str()) ? standardInputName() : pathOf(file);
    }
    return paths;
}

HashListOptions listOptions(const ImportOptions& options)
{
    HashListOptions result;
    result.format = hashListFormatOf(QString::fromStdString(options.format));
    result.misp = options.isIgnoringToIds ? MispParser::Take::Everything : MispParser::Take::ForDetection;
    return result;
}

/// What was found in all lists so far.
struct Totals
{
    qint64 accepted = 0;
    qint64 duplicates = 0;
    qint64 harmless = 0;
    qint64 rejected = 0;

    void add(const HashCollector::Counts& counts)
    {
        accepted += std::accumulate(counts.accepted.begin(), counts.accepted.end(), qint64(0));
        duplicates += counts.duplicates;
        harmless += counts.harmless;
        rejected += counts.rejected;
    }
};

/// One run of the command.
class ImportRun
{
public:
    ImportRun(Session& session, const ImportOptions& options)
        : m_session(session),
          m_output(session.output()),
          m_options(options),
          m_paths(pathsToRead(options)),
          m_target(m_output, options.isDryRun),
          m_collector([this](auto type, const QStringList& hashes) { return m_target.take(type, hashes); },
                      pieceSize),
          m_progress(m_output.showsProgress(), QStringLiteral("bytes"))
    {
    }

    ExitCode run()
    {
        m_session.requireSettings();
        m_target.begin();
        for (const QString& path : m_paths) {
            if (isStopped()) {
                break;
            }
            importList(path);
        }
        if (!m_interruption.isRequested()) {
            m_collector.finish();
        }
        m_progress.clear();
        return finish();
    }

private:
    bool isStopped() const
    {
        return m_collector.hasFailed() || m_interruption.isRequested();
    }

    void importList(const QString& path)
    {
        if (path == standardInputName()) {
            StandardInput input(m_interruption.descriptor());
            read(input, QStringLiteral("standard input"));
            return;
        }
        const CheckedFile checked(FileName::toBytes(path));
        const int lookError = errno;
        if (checked.kind() != CheckedFile::Kind::Regular) {
            fail(path, checked.kind() == CheckedFile::Kind::Missing
                           ? qt_error_string(lookError)
                           : QStringLiteral("it is no regular file"));
            return;
        }
        const UniqueFd descriptor = checked.openForReading();
        const int openError = errno;
        QFile file;
        if (!descriptor.isValid()) {
            fail(path, qt_error_string(openError));
        } else if (file.open(descriptor.get(), QIODevice::ReadOnly)) {
            read(file, path);
        } else {
            fail(path, file.errorString());
        }
    }

    void read(QIODevice& file, const QString& name)
    {
        m_collector.beginList();
        const HashListResult result = readHashList(file, name, listOptions(m_options), m_collector,
                                                   [this, &name](qint64 done, qint64 total) {
                                                       m_progress.update(done, total, name);
                                                       return !isStopped();
                                                   });
        m_progress.clear();
        const HashCollector::Counts& counts = m_collector.counts();
        Totals found;
        found.add(counts);
        m_totals.add(counts);
        const bool isCut = isStopped();
        // A list that ends in the middle because nobody reads on is not broken.
        QString error = isCut ? QString() : result.error;
        const bool hasHashes = found.accepted + found.duplicates + found.harmless > 0;
        if (error.isEmpty() && !isCut && !hasHashes && found.rejected > 0) {
            error = QStringLiteral("there is no hash in it that can be taken; try another --format");
        }
        report(name, result, found, error);
        if (error.isEmpty() && !isCut && !hasHashes) {
            m_output.warning(QStringLiteral("%1: there is no hash in it").arg(name));
        }
    }

    void fail(const QString& name, const QString& error)
    {
        m_collector.beginList();
        report(name, {}, {}, error);
    }

    void report(const QString& name, const HashListResult& result, const Totals& found, const QString& error)
    {
        QJsonObject object;
        JsonText::insertPath(object, QStringLiteral("path"), name);
        object.insert(QStringLiteral("format"),
                      result.format ? QJsonValue(nameOf(*result.format)) : QJsonValue());
        object.insert(QStringLiteral("hashes"), found.accepted);
        object.insert(QStringLiteral("duplicate"), found.duplicates);
        object.insert(QStringLiteral("harmless"), found.harmless);
        object.insert(QStringLiteral("rejected"), found.rejected);
        object.insert(QStringLiteral("rejections"), rejections());
        object.insert(QStringLiteral("error"), error.isEmpty() ? QJsonValue() : QJsonValue(error));
        m_files.append(object);

        if (!isStopped()) {
            // Otherwise the last line may only be the beginning of one.
            tellRejections(name, found.rejected + found.harmless);
        }
        if (result.format && !m_options.isDryRun) {
            m_output.line(QStringLiteral("%1: %2, %3 hashes")
                              .arg(printable(name), nameOf(*result.format))
                              .arg(found.accepted));
        }
        if (!error.isEmpty()) {
            m_hasError = true;
            m_output.error(found.accepted == 0
                               ? QStringLiteral("%1: %2").arg(name, error)
                               : QStringLiteral("%1: %2; what stands before that is taken").arg(name, error));
        }
    }

    QJsonArray rejections() const
    {
        QJsonArray array;
        for (const HashCollector::Rejection& rejection : m_collector.rejections()) {
            array.append(QJsonObject{{QStringLiteral("line"), rejection.line},
                                     {QStringLiteral("reason"), FileName::toDisplay(rejection.reason)}});
        }
        return array;
    }

    void tellRejections(const QString& name, qint64 count)
    {
        int shown = 0;
        for (const HashCollector::Rejection& rejection : m_collector.rejections()) {
            if (shown == shownRejections) {
                break;
            }
            m_output.note(
                QStringLiteral("%1:%2: not taken: %3").arg(name).arg(rejection.line).arg(rejection.reason));
            ++shown;
        }
        if (count > shown) {
            m_output.note(QStringLiteral("%1: %2 more were not taken").arg(name).arg(count - shown));
        }
    }

    ExitCode finish()
    {
        const qint64 duplicates = m_totals.duplicates + m_totals.accepted - m_target.added();
        QString stopped = m_target.problem();
        if (stopped.isEmpty() && m_interruption.isRequested()) {
            stopped = QStringLiteral("interrupted; %1 hashes were added").arg(m_target.added());
        }
        if (stopped.isEmpty()) {
            const QString counts =
                QStringLiteral("%1: %2, duplicate: %3, harmless: %4, rejected: %5")
                    .arg(m_options.isDryRun ? QStringLiteral("would be added") : QStringLiteral("added"))
                    .arg(m_target.added())
                    .arg(duplicates)
                    .arg(m_totals.harmless)
                    .arg(m_totals.rejected);
            if (m_options.isDryRun) {
                // Beside the hashes, which may go into a file.
                m_output.note(counts);
            } else {
                m_output.line(counts);
            }
        } else {
            m_output.error(stopped);
        }
        QJsonObject document = {
            {QStringLiteral("added"), m_target.added()},
            {QStringLiteral("duplicate"), stopped.isEmpty() ? QJsonValue(duplicates) : QJsonValue()},
            {QStringLiteral("harmless"), m_totals.harmless},
            {QStringLiteral("rejected"), m_totals.rejected},
            {QStringLiteral("files"), m_files},
            {QStringLiteral("dry_run"), m_options.isDryRun},
            {QStringLiteral("stopped"), stopped.isEmpty() ? QJsonValue() : QJsonValue(stopped)}};
        ExitCode code = ExitCode::Good;
        if (!m_options.isDryRun) {
            code = ServiceReload(m_session, !m_options.isWithoutReload).run({ReloadPart::IocLists}, document);
        }
        m_target.end(document);
        return m_hasError || !stopped.isEmpty() ? ExitCode::Error : code;
    }

    Session& m_session;
    Output& m_output;
    const ImportOptions& m_options;
    const QStringList m_paths;
    const Interruption m_interruption;
    ImportTarget m_target;
    HashCollector m_collector;
    Progress m_progress;
    Totals m_totals;
    QJsonArray m_files;
    bool m_hasError = false;
};

std::vector<std::string> formatNames()
{
    std::vector<std::string> names = {"auto"};
    for (const QString& name : hashListFormatNames()) {
        names.push_back(name.toStdString());
    }
    return names;
}
} // namespace

void addIocImportCommand(const Command& ioc)
{
    const Command command = ioc.addCommand("import", "Add the hashes in files to the lists");
    command.setFooter("What looks like a hash and is none is named with the reason, and so is each line of a "
                      "plain list that "
                      "holds\nno hash, apart from empty ones and comments. Of each file that cannot be read "
                      "to its end, what "
                      "stands before\nthe damage is added.");
    auto options = std::make_shared<ImportOptions>();
    command.addOption("FILE", options->files, "Lists of hashes; - for standard input").required();
    command
        .addOption("--format", options->format, "How the files are written; by default told by their content")
        .oneOf(formatNames());
    command.addFlag("--dry-run", options->isDryRun, "Only print the hashes that would be added");
    command.addFlag("--ignore-to-ids", options->isIgnoringToIds,
                    "Of MISP events, also take attributes that are not marked for detection");
    addNoReloadFlag(command, options->isWithoutReload);
    command.setAction([options](Session& session) { return ImportRun(session, *options).run(); });
}
