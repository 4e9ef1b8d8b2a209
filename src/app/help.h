// The help pages (docs/help, compiled in) in a small help window.
#pragma once

#include <QString>
#include <QUrl>

class QWidget;

namespace korvane {

// Opens the help window (one for the program, modeless, owned by `parent`;
// it moves to a new parent when another window asks) at
// `topic`: "index", "options", "records", "200" (DHCP configuration) or
// "log"; an unknown topic shows the index.
void ShowHelp(QWidget* parent, const QString& topic);

// The page of a topic, as ShowHelp opens it.
QUrl HelpPage(const QString& topic);

}  // namespace korvane
