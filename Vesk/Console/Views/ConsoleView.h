// The console pane: the transcript, and under it the input with its activity capsule.
#pragma once

#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

class ConsoleInput;
class ConsoleTranscriptView;
class QLabel;
class QToolButton;
class Workspace;

class ConsoleView : public QWidget {
    Q_OBJECT
public:
    explicit ConsoleView(Workspace &workspace, QWidget *parent = nullptr);

    ConsoleTranscriptView *transcript() const { return m_transcript; }
    ConsoleInput *input() const { return m_input; }
    QLabel *activityCapsule() const { return m_capsule; }
    // Applies the console font size and redraws in the current look.
    void applyLook();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void updateState();
    void updateCapsule();

    Workspace &m_workspace;
    ConsoleTranscriptView *m_transcript = nullptr;
    ConsoleInput *m_input = nullptr;
    QLabel *m_capsule = nullptr;
    QLabel *m_problem = nullptr;
    QToolButton *m_ask = nullptr;
    QToolButton *m_stop = nullptr;
    QTimer m_tick;
    bool m_updatingInput = false;
};
