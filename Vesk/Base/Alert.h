// A question for the user, as data: a view shows it and reports the index of the chosen button, and
// a test answers it. Models ask through a hook that takes one of these and never open dialogs.
#pragma once

#include <QString>
#include <QStringList>

#include <functional>

struct Alert {
    QString title;
    QString text;
    QStringList buttons;
    std::function<void(int)> onChoice;
};
