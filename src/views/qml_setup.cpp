#include "views/qml_setup.h"

#include <QQmlContext>
#include <QUrl>

#include "tavik/core/tavik.h"
#include "views/logging.h"

namespace tavik::quick {

template <typename T>
void TavikConfiguration::set(std::optional<T>& field, const T& value, const char* name) {
  if (field == value) return;
  if (ready_) {
    qCWarning(lcViews,
              "TavikConfiguration: %s changed after the SDK was set up; the SDK is "
              "set up once, so the change is ignored",
              name);
    return;
  }
  field = value;
  Q_EMIT configurationChanged();
}
template void TavikConfiguration::set(std::optional<QString>&, const QString&, const char*);
template void TavikConfiguration::set(std::optional<bool>&, const bool&, const char*);

void TavikConfiguration::setContent(QQmlComponent* component) {
  if (component == content_) return;
  if (ready_) {
    qCWarning(lcViews, "TavikConfiguration: content changed after set-up is ignored");
    return;
  }
  content_ = component;
  Q_EMIT contentChanged();
}

void TavikConfiguration::componentComplete() {
  QQuickItem::componentComplete();
  // The builder does the validation and stops the process on a set-up mistake, with the
  // same messages as in C++.
  TAVIK::Builder builder;
  if (clientId_) builder.clientId(clientId_->toStdString());
  if (productAdsHost_) builder.productAdsHost(productAdsHost_->toStdString());
  if (displayAdsHost_) builder.displayAdsHost(displayAdsHost_->toStdString());
  if (eventTrackingHost_) builder.eventTrackingHost(eventTrackingHost_->toStdString());
  if (debug_) builder.debug(*debug_);
  if (impressionOnViewable_) builder.impressionOnViewable(*impressionOnViewable_);
  if (trustedCaBundle_) {
    const QUrl url(*trustedCaBundle_);
    builder.trustedCaBundle(
        (url.isLocalFile() ? url.toLocalFile() : *trustedCaBundle_).toStdString());
  }
  builder.buildGlobalInstance();
  ready_ = true;
  makeContent();
  Q_EMIT readyChanged();
}

void TavikConfiguration::makeContent() {
  if (!content_) return;
  QQmlContext* context = qmlContext(this);
  QObject* object = content_->beginCreate(context);
  auto* item = qobject_cast<QQuickItem*>(object);
  if (!item) {
    if (object) {
      qCWarning(lcViews, "TavikConfiguration: its content must be an Item");
      delete object;
    } else {
      qCWarning(lcViews, "TavikConfiguration: cannot make its content: %s",
                qPrintable(content_->errorString()));
    }
    return;
  }
  item->setParent(this);
  item->setParentItem(this);
  content_->completeCreate();
  contentItem_ = item;
  followContentSize();
  connect(item, &QQuickItem::widthChanged, this, &TavikConfiguration::followContentSize);
  connect(item, &QQuickItem::heightChanged, this, &TavikConfiguration::followContentSize);
}

// The configuration is as large as its content unless the host sizes it.
void TavikConfiguration::followContentSize() {
  if (contentItem_) setImplicitSize(contentItem_->width(), contentItem_->height());
}

}  // namespace tavik::quick
