#include "Omnira/QuitRequestWindow.h"

#include <QApplication>
#include <QCheckBox>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>

#include <memory>

namespace omnira {

namespace {

QLabel* wrapped(const std::string& text, QWidget* parent) {
  auto* label = new QLabel(QString::fromStdString(text), parent);
  label->setWordWrap(true);
  label->setTextFormat(Qt::PlainText);
  return label;
}

}  // namespace

QuitRequestWindow::~QuitRequestWindow() { close(); }

void QuitRequestWindow::ask(const QuitPlan& plan, std::function<void(QuitAnswer)> answered) {
  close();
  auto* dialog = new QDialog(nullptr, Qt::Dialog | Qt::WindowStaysOnTopHint);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setWindowTitle(plan.force ? "Omnira: force quit?" : "Omnira: quit?");
  dialog->setMinimumWidth(440);
  auto* layout = new QVBoxLayout(dialog);

  auto* title = wrapped(QuitRequestPanel::headline(plan), dialog);
  QFont bold = title->font();
  bold.setBold(true);
  bold.setPointSizeF(bold.pointSizeF() * 1.15);
  title->setFont(bold);
  layout->addWidget(title);

  // The verdict with its sign: a shield that says yes, or a warning triangle.
  auto* verdict = new QHBoxLayout;
  auto* icon = new QLabel(dialog);
  const auto sign = plan.safe ? QStyle::SP_DialogApplyButton : QStyle::SP_MessageBoxWarning;
  icon->setPixmap(dialog->style()->standardIcon(sign).pixmap(32, 32));
  verdict->addWidget(icon, 0, Qt::AlignTop);
  auto* verdictText = wrapped(verdictLine(plan), dialog);
  verdict->addWidget(verdictText, 1);
  layout->addLayout(verdict);
  for (const auto& line : detailLines(plan)) layout->addWidget(wrapped(line, dialog));
  if (plan.force) {
    auto* warning = wrapped(kForceWarning, dialog);
    warning->setStyleSheet("color: #b3261e; font-weight: bold;");
    layout->addWidget(warning);
  }
  layout->addWidget(wrapped(kMinuteLine, dialog));

  QCheckBox* allow = nullptr;
  if (plan.folder && plan.safe && !plan.force) {
    allow = new QCheckBox(QString::fromStdString(allowFolderLine(*plan.folder)), dialog);
    allow->setObjectName(kAllowFolder);
    layout->addWidget(allow);
  }

  auto* buttons = new QDialogButtonBox(dialog);
  auto* quit = buttons->addButton(plan.force ? "Force Quit" : "Quit", QDialogButtonBox::AcceptRole);
  auto* keep = buttons->addButton("Don't Quit", QDialogButtonBox::RejectRole);
  quit->setObjectName(kQuitButton);
  keep->setObjectName(kKeepButton);
  // Force is never one Return away; a plain quit is what the person came to the window for.
  (plan.force ? keep : quit)->setDefault(true);
  layout->addWidget(buttons);

  // One answer, whichever way the window goes.
  auto once = std::make_shared<std::function<void(QuitAnswer)>>(std::move(answered));
  const auto give = [once](QuitAnswer answer) {
    if (!*once) return;
    auto call = std::move(*once);
    *once = nullptr;
    call(answer);
  };
  QObject::connect(buttons, &QDialogButtonBox::accepted, dialog, [dialog, allow, give] {
    const bool always = allow && allow->isChecked();
    dialog->accept();
    give(always ? QuitAnswer::quitAndAllowFolder : QuitAnswer::quit);
  });
  QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, [dialog, give] {
    dialog->reject();
    give(QuitAnswer::no);
  });
  QObject::connect(dialog, &QDialog::rejected, dialog, [give] { give(QuitAnswer::no); });
  // close() from the owner gives no answer: the owner knows why it closed it.
  dialog_ = dialog;
  closeAnswer_ = once;
  dialog->show();
  dialog->raise();
  dialog->activateWindow();
}

void QuitRequestWindow::close() {
  if (closeAnswer_) *closeAnswer_ = nullptr;
  closeAnswer_.reset();
  if (dialog_) dialog_->close();
  dialog_ = nullptr;
}

}  // namespace omnira
