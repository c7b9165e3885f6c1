#include "setup/setup_view_widget.h"

#include <QBoxLayout>
#include <QEvent>
#include <QFontInfo>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <cmath>

#include "domain/file_provider_settings.h"
#include "platform/desktop/workspace.h"
#include "platform/seam.h"
#include "server/server_address.h"
#include "setup/link_button.h"
#include "setup/setup_style.h"
#include "setup/setup_view.h"
#include "setup/symbol_label.h"

using setup_style::FontRole;

namespace {

// Spacing between the window's sections, between the form's rows, and between the rows of the
// account summary and of the enable step.
constexpr int SECTION_SPACING = 16;
constexpr int FORM_SPACING = 10;
constexpr int SUMMARY_SPACING = 12;

// When a state holds more than the fixed window has room for (the advanced row, the account-page
// link and a two-line error all at once), the spacings shrink by these factors, in turn, until
// everything fits at its natural height.
constexpr double SPACING_FACTORS[] = {1.0, 0.6, 0.35, 0.15, 0.0};

// The placeholder of the e-mail field.
const QString EXAMPLE_EMAIL = QStringLiteral("name@example.com");

// A web page below the account page, as a path component appended to it.
std::optional<QUrl> portalPage(const QString& server, const QString& component) {
    std::optional<QUrl> url = portalURL(server);
    if (!url) return std::nullopt;
    QString path = url->path();
    if (!path.endsWith(QLatin1Char('/'))) path += QLatin1Char('/');
    url->setPath(path + component);
    return url;
}

QLabel* label(const QString& text, QWidget* parent) {
    auto* created = new QLabel(text, parent);
    created->setTextFormat(Qt::PlainText);
    return created;
}

// A small indeterminate progress indicator.
QProgressBar* activityIndicator(const QString& accessibleName, QWidget* parent) {
    auto* indicator = new QProgressBar(parent);
    indicator->setRange(0, 0);
    indicator->setTextVisible(false);
    indicator->setAccessibleName(accessibleName);
    indicator->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    return indicator;
}

QBoxLayout* row(int spacing) {
    auto* layout = new QHBoxLayout;
    layout->setContentsMargins(0, 0, 0, 0);
    if (spacing >= 0) layout->setSpacing(spacing);
    return layout;
}

QVBoxLayout* column(QWidget* owner, int spacing) {
    auto* layout = new QVBoxLayout(owner);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(spacing);
    return layout;
}

void setRoleFont(QWidget* widget, const QFont& base, FontRole role) {
    widget->setFont(setup_style::font(base, role));
}

void setTextColor(QWidget* widget, const QColor& color) {
    QPalette palette = widget->palette();
    palette.setColor(QPalette::WindowText, color);
    palette.setColor(QPalette::ButtonText, color);
    widget->setPalette(palette);
}

// The pixel size of text of `font`, for symbols that stand in a line of it.
int pixelSize(const QFont& font) {
    return QFontInfo(font).pixelSize();
}

void setText(QLineEdit* field, const QString& text) {
    if (field->text() != text) field->setText(text);
}

}  // namespace

SetupViewWidget::SetupViewWidget(SetupView* view, QWidget* parent) : QWidget(parent), view_(view) {
    view_->setParent(this);
    auto* layout = new QVBoxLayout(this);
    rootLayout_ = layout;
    layout->setContentsMargins(22, 22, 22, 22);
    layout->setSpacing(SECTION_SPACING);
    layout->addLayout(buildHeader());
    layout->addWidget(buildSignInForm());
    layout->addWidget(buildEnableStep());
    layout->addWidget(buildSignedIn());
    layout->addWidget(buildErrorLine());
    layout->addStretch(1);
    layout->addLayout(buildFooter());
    setTabOrder();
    applyStyle();
    connect(view_, &SetupView::changed, this, &SetupViewWidget::redraw);
    redraw();
}

QLayout* SetupViewWidget::buildHeader() {
    auto* header = row(10);
    cloudSymbol_ = new SymbolLabel(QStringLiteral("cloud"), SymbolLabel::Tone::tint, 32, this);
    cloudSymbol_->setAccessibleName(QStringLiteral("Vaskel"));
    header->addWidget(cloudSymbol_, 0, Qt::AlignVCenter);
    auto* titles = new QVBoxLayout;
    titles->setSpacing(1);
    titleLabel_ = label(QStringLiteral("Vaskel"), this);
    subtitleLabel_ = label(QString(), this);
    titles->addWidget(titleLabel_);
    titles->addWidget(subtitleLabel_);
    header->addLayout(titles);
    header->addStretch(1);
    return header;
}

QWidget* SetupViewWidget::buildSignInForm() {
    signInForm_ = new QWidget(this);
    auto* form = column(signInForm_, FORM_SPACING);

    emailCaption_ = label(QStringLiteral("Email"), signInForm_);
    emailField_ = new QLineEdit(signInForm_);
    emailField_->setPlaceholderText(EXAMPLE_EMAIL);
    emailField_->setAccessibleName(QStringLiteral("Email"));
    emailField_->setInputMethodHints(Qt::ImhEmailCharactersOnly | Qt::ImhNoAutoUppercase |
                                     Qt::ImhNoPredictiveText);
    emailCaption_->setBuddy(emailField_);
    connect(emailField_, &QLineEdit::textEdited, view_, &SetupView::setEmail);

    passwordCaption_ = label(QStringLiteral("Password"), signInForm_);
    passwordField_ = new QLineEdit(signInForm_);
    passwordField_->setEchoMode(QLineEdit::Password);
    passwordField_->setPlaceholderText(QStringLiteral("Your Vaskel password"));
    passwordField_->setAccessibleName(QStringLiteral("Password"));
    passwordField_->setInputMethodHints(Qt::ImhHiddenText | Qt::ImhSensitiveData |
                                        Qt::ImhNoAutoUppercase | Qt::ImhNoPredictiveText);
    passwordCaption_->setBuddy(passwordField_);
    connect(passwordField_, &QLineEdit::textEdited, view_, &SetupView::setPassword);

    auto* links = row(14);
    createAccountLink_ = new LinkButton(QStringLiteral("Create an account"), signInForm_);
    connect(createAccountLink_, &LinkButton::clicked, this,
            [this] { open(portalPage(view_->server(), QStringLiteral("signup"))); });
    forgotPasswordLink_ = new LinkButton(QStringLiteral("Forgot password?"), signInForm_);
    connect(forgotPasswordLink_, &LinkButton::clicked, this,
            [this] { open(portalPage(view_->server(), QStringLiteral("forgot"))); });
    advancedLink_ = new LinkButton(QString(), signInForm_);
    connect(advancedLink_, &LinkButton::clicked, this,
            [this] { view_->setShowAdvanced(!view_->showAdvanced()); });
    links->addWidget(createAccountLink_);
    links->addWidget(forgotPasswordLink_);
    links->addStretch(1);
    links->addWidget(advancedLink_);

    advancedRow_ = new QWidget(signInForm_);
    auto* advanced = row(-1);
    advancedRow_->setLayout(advanced);
    serverCaption_ = label(QStringLiteral("Server"), advancedRow_);
    serverField_ = new QLineEdit(advancedRow_);
    serverField_->setPlaceholderText(DEFAULT_SERVER);
    serverField_->setAccessibleName(QStringLiteral("Server"));
    serverField_->setInputMethodHints(Qt::ImhUrlCharactersOnly | Qt::ImhNoAutoUppercase |
                                      Qt::ImhNoPredictiveText);
    serverCaption_->setBuddy(serverField_);
    connect(serverField_, &QLineEdit::textEdited, view_, &SetupView::setServer);
    advanced->addWidget(serverCaption_);
    advanced->addWidget(serverField_, 1);

    portalLink_ = new LinkButton(QStringLiteral("Open your account page"), signInForm_);
    connect(portalLink_, &LinkButton::clicked, this, [this] { open(view_->portalHint()); });

    form->addWidget(emailCaption_);
    form->addWidget(emailField_);
    form->addWidget(passwordCaption_);
    form->addWidget(passwordField_);
    form->addLayout(links);
    form->addWidget(advancedRow_);
    form->addWidget(portalLink_, 0, Qt::AlignLeft);
    return signInForm_;
}

QWidget* SetupViewWidget::buildSignedIn() {
    signedIn_ = new QWidget(this);
    auto* summary = column(signedIn_, SUMMARY_SPACING);

    auto* identity = row(8);
    personSymbol_ = new SymbolLabel(QStringLiteral("person.crop.circle.fill"),
                                    SymbolLabel::Tone::secondary, 20, signedIn_);
    personSymbol_->setAccessibleName(QStringLiteral("Account"));
    auto* names = new QVBoxLayout;
    names->setSpacing(1);
    nameLabel_ = label(QString(), signedIn_);
    accountEmailLabel_ = label(QString(), signedIn_);
    names->addWidget(nameLabel_);
    names->addWidget(accountEmailLabel_);
    identity->addWidget(personSymbol_, 0, Qt::AlignVCenter);
    identity->addLayout(names);
    identity->addStretch(1);

    auto* usage = new QVBoxLayout;
    usage->setSpacing(5);
    usageBar_ = new QProgressBar(signedIn_);
    usageBar_->setRange(0, 1000);
    usageBar_->setTextVisible(false);
    usageBar_->setAccessibleName(QStringLiteral("Storage used"));
    usageLabel_ = label(QString(), signedIn_);
    paymentLink_ = new LinkButton(QString(), signedIn_);
    paymentLink_->setTone(LinkButton::Tone::red);
    connect(paymentLink_, &LinkButton::clicked, this, [this] { open(portalURL(view_->server())); });
    usage->addWidget(usageBar_);
    usage->addWidget(usageLabel_);
    usage->addWidget(paymentLink_, 0, Qt::AlignLeft);

    auto* links = row(16);
    browseFilesLink_ = new LinkButton(QStringLiteral("Browse files online…"), signedIn_);
    connect(browseFilesLink_, &LinkButton::clicked, this,
            [this] { open(filesURL(view_->server())); });
    manageAccountLink_ = new LinkButton(QStringLiteral("Manage account…"), signedIn_);
    connect(manageAccountLink_, &LinkButton::clicked, this,
            [this] { open(portalURL(view_->server())); });
    links->addWidget(browseFilesLink_);
    links->addWidget(manageAccountLink_);
    links->addStretch(1);

    summary->addLayout(identity);
    summary->addLayout(usage);
    summary->addLayout(links);
    return signedIn_;
}

QWidget* SetupViewWidget::buildEnableStep() {
    enableStep_ = new QWidget(this);
    auto* step = column(enableStep_, SUMMARY_SPACING);

    auto* title = row(6);
    folderSymbol_ = new SymbolLabel(QStringLiteral("folder.badge.questionmark"),
                                    SymbolLabel::Tone::text, 16, enableStep_);
    folderSymbol_->setAccessibleName(QStringLiteral("Folder"));
    enableTitle_ = label(QStringLiteral("One more step on this Mac"), enableStep_);
    title->addWidget(folderSymbol_, 0, Qt::AlignVCenter);
    title->addWidget(enableTitle_);
    title->addStretch(1);

    enableText_ = label(QStringLiteral("Open your Vaskel folder and macOS will ask for permission "
                                       "to turn it on. Click Enable when it does."),
                        enableStep_);
    enableText_->setWordWrap(true);

    auto* buttons = row(-1);
    openFolderButton_ = new QPushButton(QStringLiteral("Open Vaskel Folder"), enableStep_);
    connect(openFolderButton_, &QPushButton::clicked, view_, &SetupView::openFolder);
    checkButton_ = new QPushButton(enableStep_);
    connect(checkButton_, &QPushButton::clicked, view_, &SetupView::recheck);
    checkIndicator_ = activityIndicator(QStringLiteral("Checking"), enableStep_);
    buttons->addWidget(openFolderButton_);
    buttons->addWidget(checkButton_);
    buttons->addWidget(checkIndicator_, 0, Qt::AlignVCenter);
    buttons->addStretch(1);

    settingsLink_ = new LinkButton(QStringLiteral("Or open System Settings"), enableStep_);
    connect(settingsLink_, &LinkButton::clicked, this, [] { openFileProviderSettings(); });

    step->addLayout(title);
    step->addWidget(enableText_);
    step->addLayout(buttons);
    step->addWidget(settingsLink_, 0, Qt::AlignLeft);
    return enableStep_;
}

QWidget* SetupViewWidget::buildErrorLine() {
    errorLine_ = new QWidget(this);
    auto* line = row(6);
    errorLine_->setLayout(line);
    errorSymbol_ = new SymbolLabel(QStringLiteral("exclamationmark.triangle.fill"),
                                   SymbolLabel::Tone::red, 14, errorLine_);
    errorSymbol_->setAccessibleName(QStringLiteral("Error"));
    errorLabel_ = label(QString(), errorLine_);
    errorLabel_->setWordWrap(true);
    errorLabel_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    line->addWidget(errorSymbol_, 0, Qt::AlignTop);
    line->addWidget(errorLabel_, 1);
    return errorLine_;
}

QLayout* SetupViewWidget::buildFooter() {
    auto* footer = row(-1);
    signOutButton_ = new QPushButton(QStringLiteral("Sign Out"), this);
    connect(signOutButton_, &QPushButton::clicked, view_, &SetupView::signOut);
    busyIndicator_ = activityIndicator(QStringLiteral("Working"), this);
    signInButton_ = new QPushButton(QStringLiteral("Sign In"), this);
    connect(signInButton_, &QPushButton::clicked, view_, &SetupView::signIn);
    skipButton_ = new QPushButton(QStringLiteral("Skip for Now"), this);
    connect(skipButton_, &QPushButton::clicked, view_, &SetupView::close);
    doneButton_ = new QPushButton(QStringLiteral("Done"), this);
    connect(doneButton_, &QPushButton::clicked, view_, &SetupView::close);
    footer->addWidget(signOutButton_);
    footer->addStretch(1);
    footer->addWidget(busyIndicator_, 0, Qt::AlignVCenter);
    footer->addSpacing(4);
    footer->addWidget(signInButton_);
    footer->addWidget(skipButton_);
    footer->addWidget(doneButton_);
    return footer;
}

void SetupViewWidget::setTabOrder() {
    // Reading order: the form top to bottom, then the summary or the enable step, then the
    // footer from leading to trailing. Hidden controls are skipped by the focus chain.
    const QWidget* chain[] = {
        emailField_,  passwordField_,   createAccountLink_, forgotPasswordLink_, advancedLink_,
        serverField_, portalLink_,      openFolderButton_,  checkButton_,        settingsLink_,
        paymentLink_, browseFilesLink_, manageAccountLink_, signOutButton_,      signInButton_,
        skipButton_,  doneButton_};
    for (size_t i = 0; i + 1 < std::size(chain); ++i) {
        QWidget::setTabOrder(const_cast<QWidget*>(chain[i]), const_cast<QWidget*>(chain[i + 1]));
    }
}

void SetupViewWidget::applyStyle() {
    const QFont base = font();
    const QColor secondary = setup_style::secondary(palette());
    const QColor red = setup_style::red(palette());

    setRoleFont(titleLabel_, base, FontRole::title2);
    for (QLabel* callout : {subtitleLabel_, emailCaption_, passwordCaption_, accountEmailLabel_,
                            usageLabel_, enableText_}) {
        setRoleFont(callout, base, FontRole::callout);
        setTextColor(callout, secondary);
    }
    setRoleFont(serverCaption_, base, FontRole::caption);
    setTextColor(serverCaption_, secondary);
    setRoleFont(serverField_, base, FontRole::caption);
    for (LinkButton* caption : {createAccountLink_, forgotPasswordLink_, advancedLink_}) {
        setRoleFont(caption, base, FontRole::caption);
    }
    for (LinkButton* callout :
         {portalLink_, paymentLink_, browseFilesLink_, manageAccountLink_, settingsLink_}) {
        setRoleFont(callout, base, FontRole::callout);
    }
    setRoleFont(nameLabel_, base, FontRole::headline);
    setRoleFont(enableTitle_, base, FontRole::headline);
    setRoleFont(errorLabel_, base, FontRole::callout);
    setTextColor(errorLabel_, red);
    setTextColor(signOutButton_, red);

    // Symbols sized like the text they stand beside; the header's like 26-point text.
    QFont symbolFont = base;
    symbolFont.setPointSizeF(26);
    cloudSymbol_->setSymbolSize(pixelSize(symbolFont));
    personSymbol_->setSymbolSize(int(std::lround(pixelSize(base) * 1.6)));
    folderSymbol_->setSymbolSize(pixelSize(setup_style::font(base, FontRole::headline)) + 2);
    errorSymbol_->setSymbolSize(pixelSize(setup_style::font(base, FontRole::callout)) + 1);

    const int indicatorHeight = std::max(6, pixelSize(base) / 2);
    for (QProgressBar* indicator : {busyIndicator_, checkIndicator_}) {
        indicator->setFixedSize(indicatorHeight * 8, indicatorHeight);
    }
    usageBar_->setFixedHeight(indicatorHeight);
}

void SetupViewWidget::redraw() {
    const bool signedIn = view_->account().has_value();
    subtitleLabel_->setText(signedIn ? QStringLiteral("Signed in")
                                     : QStringLiteral("Sign in to connect this Mac"));
    const bool enable = signedIn && view_->providerWorking() == false;
    signInForm_->setVisible(!signedIn);
    enableStep_->setVisible(enable);
    signedIn_->setVisible(signedIn && !enable);
    redrawSignInForm();
    if (signedIn) redrawSignedIn();
    redrawEnableStep();

    errorLine_->setVisible(view_->error().has_value());
    errorLabel_->setText(view_->error().value_or(QString()));
    redrawFooter();
    fitSpacing();
}

void SetupViewWidget::fitSpacing() {
    const auto scaled = [](int spacing, double factor) {
        return int(std::lround(spacing * factor));
    };
    for (const double factor : SPACING_FACTORS) {
        rootLayout_->setSpacing(scaled(SECTION_SPACING, factor));
        signInForm_->layout()->setSpacing(scaled(FORM_SPACING, factor));
        signedIn_->layout()->setSpacing(scaled(SUMMARY_SPACING, factor));
        enableStep_->layout()->setSpacing(scaled(SUMMARY_SPACING, factor));
        if (rootLayout_->totalSizeHint().height() <= maximumHeight()) return;
    }
}

void SetupViewWidget::redrawSignInForm() {
    setText(emailField_, view_->email());
    setText(passwordField_, view_->password());
    setText(serverField_, view_->server());
    advancedLink_->setText(view_->showAdvanced() ? QStringLiteral("Hide advanced")
                                                 : QStringLiteral("Advanced"));
    advancedLink_->updateGeometry();
    advancedRow_->setVisible(view_->showAdvanced());
    portalLink_->setVisible(view_->portalHint().has_value());
}

void SetupViewWidget::redrawSignedIn() {
    const Account& account = *view_->account();
    nameLabel_->setText(account.name);
    nameLabel_->setVisible(!account.name.isEmpty());
    accountEmailLabel_->setText(account.email);
    usageBar_->setVisible(!account.unlimited);
    usageBar_->setValue(int(std::lround(std::clamp(account.fraction(), 0.0, 1.0) * 1000)));
    QString usage = account.usageLabel();
    if (!account.planName.isEmpty()) {
        usage += QStringLiteral(" · ") + account.planName + QStringLiteral(" plan");
    }
    usageLabel_->setText(usage);
    const std::optional<QString> payment = account.paymentNotice();
    paymentLink_->setVisible(payment.has_value());
    paymentLink_->setText(payment.value_or(QString()));
    paymentLink_->updateGeometry();
}

void SetupViewWidget::redrawEnableStep() {
    const bool checking = view_->checking();
    checkButton_->setText(checking ? QStringLiteral("Checking…") : QStringLiteral("Check Again"));
    checkButton_->setEnabled(!checking);
    checkIndicator_->setVisible(checking);
}

void SetupViewWidget::redrawFooter() {
    const bool signedIn = view_->account().has_value();
    const bool enable = signedIn && view_->providerWorking() == false;
    signOutButton_->setVisible(signedIn);
    busyIndicator_->setVisible(view_->busy());
    signInButton_->setVisible(!signedIn);
    signInButton_->setEnabled(view_->canSignIn());
    skipButton_->setVisible(enable);
    doneButton_->setVisible(signedIn && !enable);
    QPushButton* main = defaultButton();
    for (QPushButton* button : {signInButton_, doneButton_, openFolderButton_, skipButton_}) {
        button->setDefault(button == main);
    }
}

QPushButton* SetupViewWidget::defaultButton() const {
    if (!view_->account()) return signInButton_;
    return view_->providerWorking() == false ? openFolderButton_ : doneButton_;
}

void SetupViewWidget::open(const std::optional<QUrl>& url) {
    if (url) platform::current<platform::Workspace>().openURL(*url);
}

void SetupViewWidget::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (appeared_) return;
    appeared_ = true;
    if (signInForm_->isVisible()) emailField_->setFocus(Qt::OtherFocusReason);
    view_->loadExisting();
}

void SetupViewWidget::keyPressEvent(QKeyEvent* event) {
    if (event->key() != Qt::Key_Return && event->key() != Qt::Key_Enter) {
        QWidget::keyPressEvent(event);
        return;
    }
    // A focused button that let Return through (links, buttons outside a dialog) takes it;
    // otherwise the state's default button does, when it may.
    auto* focused = qobject_cast<QAbstractButton*>(focusWidget());
    QAbstractButton* target = focused ? focused : defaultButton();
    if (target->isVisible() && target->isEnabled()) {
        target->click();
    }
    event->accept();
}

void SetupViewWidget::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    switch (event->type()) {
        case QEvent::FontChange:
        case QEvent::PaletteChange:
        case QEvent::StyleChange:
            applyStyle();
            break;
        default:
            break;
    }
}
