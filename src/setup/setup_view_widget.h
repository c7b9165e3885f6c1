#pragma once

#include <QUrl>
#include <QWidget>
#include <optional>

class QBoxLayout;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class LinkButton;
class SetupView;
class SymbolLabel;

/// Draws a SetupView and keeps drawing it: every change of the view updates the sections that
/// show (header, sign-in form, account summary or enable step, error line, footer), and every
/// control writes to the view or runs one of its flows. The text fields are updated only when
/// the view's value differs from what they show, so a redraw never disturbs typing. The first
/// time the widget is shown it runs the view's `loadExisting()`.
///
/// Return activates the focused button, else the default button of the state ("Sign In",
/// "Done" or "Open Vaskel Folder") when it is enabled.
class SetupViewWidget final : public QWidget {
    Q_OBJECT
public:
    /// Takes ownership of `view`.
    explicit SetupViewWidget(SetupView* view, QWidget* parent = nullptr);

    SetupView& view() const { return *view_; }

protected:
    void showEvent(QShowEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    QLayout* buildHeader();
    QWidget* buildSignInForm();
    QWidget* buildSignedIn();
    QWidget* buildEnableStep();
    QWidget* buildErrorLine();
    QLayout* buildFooter();
    void setTabOrder();
    void applyStyle();
    void redraw();
    void redrawSignInForm();
    void redrawSignedIn();
    void redrawEnableStep();
    void redrawFooter();
    void fitSpacing();
    QPushButton* defaultButton() const;
    static void open(const std::optional<QUrl>& url);

    SetupView* view_;
    bool appeared_ = false;
    QBoxLayout* rootLayout_;

    // Header.
    SymbolLabel* cloudSymbol_;
    QLabel* titleLabel_;
    QLabel* subtitleLabel_;

    // Sign-in form.
    QWidget* signInForm_;
    QLabel* emailCaption_;
    QLineEdit* emailField_;
    QLabel* passwordCaption_;
    QLineEdit* passwordField_;
    LinkButton* createAccountLink_;
    LinkButton* forgotPasswordLink_;
    LinkButton* advancedLink_;
    QWidget* advancedRow_;
    QLabel* serverCaption_;
    QLineEdit* serverField_;
    LinkButton* portalLink_;

    // Account summary.
    QWidget* signedIn_;
    SymbolLabel* personSymbol_;
    QLabel* nameLabel_;
    QLabel* accountEmailLabel_;
    QProgressBar* usageBar_;
    QLabel* usageLabel_;
    LinkButton* paymentLink_;
    LinkButton* browseFilesLink_;
    LinkButton* manageAccountLink_;

    // Enable step.
    QWidget* enableStep_;
    SymbolLabel* folderSymbol_;
    QLabel* enableTitle_;
    QLabel* enableText_;
    QPushButton* openFolderButton_;
    QPushButton* checkButton_;
    QProgressBar* checkIndicator_;
    LinkButton* settingsLink_;

    // Error line.
    QWidget* errorLine_;
    SymbolLabel* errorSymbol_;
    QLabel* errorLabel_;

    // Footer.
    QPushButton* signOutButton_;
    QProgressBar* busyIndicator_;
    QPushButton* signInButton_;
    QPushButton* skipButton_;
    QPushButton* doneButton_;
};
