#pragma once

#include "tests/support/AgentTest.h"

#include <QApplication>
#include <QTest>
#include <QWidget>
#include <cstdlib>

namespace varnoth::test {

// Base of the tests that drive real Qt windows: the agent test fixture plus one QApplication for the
// whole program, on the offscreen platform unless a display was chosen.
class QtWindowTest : public AgentTest {
protected:
    static void SetUpTestSuite() {
        if (QApplication::instance() != nullptr) {
            return;
        }
        setenv("QT_QPA_PLATFORM", "offscreen", 0);
        static int argc = 1;
        static char name[] = "app_tests";
        static char* argv[] = {name, nullptr};
        // Kept for the life of the process: Qt does not support a second QApplication.
        static QApplication* application = new QApplication(argc, argv);
        (void)application;
    }

    // What a user does with the mouse: a left click at a point of the control (its centre by default).
    static void click(QWidget* widget, QPoint at = {}) { QTest::mouseClick(widget, Qt::LeftButton, {}, at); }
    // A check box toggles only on its indicator or label, so it is clicked near its left edge.
    static void clickCheckBox(QWidget* box) { click(box, QPoint(6, box->height() / 2)); }
};

} // namespace varnoth::test
