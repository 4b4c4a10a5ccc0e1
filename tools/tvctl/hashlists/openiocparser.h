#pragma once

#include "tvctl/hashlists/hashlistparser.h"

#include <QString>

class HashListSink;
class QXmlStreamReader;

/// XML of OpenIOC 1.0 and 1.1: the items that ask for the hash of a file.
///
/// The condition has to be "is", not negated. A document type declaration ends the reading: none is needed,
/// and entities can be made to grow without end.
class OpenIocParser : public HashListParser
{
public:
    QString parse(HashListInput& input, HashListSink& sink) override;

private:
    struct Item
    {
        bool isOpen = false;
        bool isInContent = false;
        bool isNegated = false;
        QString condition;
        QString search;
        QString contentType;
        QString content;
        qint64 line = 0;
    };

    /// What is wrong; empty when nothing is.
    QString take(const QXmlStreamReader& reader, HashListSink& sink);
    void beginElement(const QXmlStreamReader& reader);
    void endElement(const QXmlStreamReader& reader, HashListSink& sink);
    void judgeItem(HashListSink& sink) const;

    Item m_item;
    int m_depth = 0;
};
