// The inspector's model without a server: requests posted from other threads arrive in
// batches, newest first, and the filter by kind narrows the rows.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QSignalSpy>
#include <thread>
#include <vector>

#include "request_log.h"

using tavik::shop::RequestEntry;
using tavik::shop::RequestLogModel;

namespace {

RequestEntry entry(const QString& service, const QString& path, long status = 200) {
  RequestEntry e;
  e.sentAt = QDateTime::currentDateTimeUtc();
  e.service = service;
  e.method = QStringLiteral("GET");
  e.path = path;
  e.status = status;
  return e;
}

QString pathAt(const RequestLogModel& model, int row) {
  return model.data(model.index(row), RequestLogModel::PathRole).toString();
}

void deliver() {
  QCoreApplication::processEvents();
}

}  // namespace

TEST(RequestLog, NothingShowsBeforeTheHandOverRuns) {
  RequestLogModel model;
  model.post(entry("ads", "/v2/bsda"));
  EXPECT_EQ(model.rowCount(), 0);
  deliver();
  EXPECT_EQ(model.rowCount(), 1);
  EXPECT_EQ(model.total(), 1);
}

TEST(RequestLog, NewestFirstAcrossBatches) {
  RequestLogModel model;
  model.post(entry("ads", "/first"));
  model.post(entry("events", "/second"));
  deliver();
  model.post(entry("products", "/third"));
  deliver();
  ASSERT_EQ(model.rowCount(), 3);
  EXPECT_EQ(pathAt(model, 0), "/third");
  EXPECT_EQ(pathAt(model, 1), "/second");
  EXPECT_EQ(pathAt(model, 2), "/first");
  // The printed log reads the other way: oldest first.
  const QStringList lines = model.logLines();
  ASSERT_EQ(lines.size(), 3);
  EXPECT_TRUE(lines[0].contains("/first"));
  EXPECT_TRUE(lines[2].contains("/third"));
}

TEST(RequestLog, ABurstFromManyThreadsIsFewHandOversAndOneInsertionEach) {
  RequestLogModel model(10000);
  QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&model, t] {
      for (int i = 0; i < 250; ++i)
        model.post(entry("events", QStringLiteral("/%1/%2").arg(t).arg(i)));
    });
  }
  for (auto& thread : threads) thread.join();
  deliver();
  EXPECT_EQ(model.rowCount(), 1000);
  // Every request posted before the hand-over ran rides along with it.
  EXPECT_EQ(model.batches(), 1);
  EXPECT_EQ(inserted.size(), 1);
  // Each thread's requests keep their order (newest first) among the rows.
  int lastSeen[4] = {250, 250, 250, 250};
  for (int row = 0; row < model.rowCount(); ++row) {
    const QStringList parts = pathAt(model, row).split('/', Qt::SkipEmptyParts);
    const int t = parts[0].toInt();
    const int i = parts[1].toInt();
    EXPECT_LT(i, lastSeen[t]);
    lastSeen[t] = i;
  }
}

TEST(RequestLog, TheFilterByKindNarrowsAndRestoresTheRows) {
  RequestLogModel model;
  model.post(entry("ads", "/v2/bsda"));
  model.post(entry("events", "/events"));
  model.post(entry("media", "/media/a.png"));
  model.post(entry("events", "/aclick"));
  deliver();
  model.setKind(QStringLiteral("events"));
  ASSERT_EQ(model.rowCount(), 2);
  EXPECT_EQ(pathAt(model, 0), "/aclick");
  EXPECT_EQ(pathAt(model, 1), "/events");

  // New requests of another kind stay out of the rows but are kept.
  model.post(entry("products", "/sda"));
  model.post(entry("events", "/events/late"));
  deliver();
  ASSERT_EQ(model.rowCount(), 3);
  EXPECT_EQ(pathAt(model, 0), "/events/late");
  EXPECT_EQ(model.count(QStringLiteral("products")), 1);

  model.setKind(QString());
  EXPECT_EQ(model.rowCount(), 6);
  EXPECT_EQ(pathAt(model, 0), "/events/late");
  EXPECT_EQ(pathAt(model, 5), "/v2/bsda");
}

TEST(RequestLog, PastTheCapacityTheOldestGoFromLogAndRows) {
  RequestLogModel model(3);
  for (int i = 0; i < 5; ++i)
    model.post(entry(i % 2 ? "events" : "ads", QStringLiteral("/%1").arg(i)));
  deliver();
  ASSERT_EQ(model.rowCount(), 3);
  EXPECT_EQ(pathAt(model, 0), "/4");
  EXPECT_EQ(pathAt(model, 2), "/2");
  EXPECT_EQ(model.total(), 5);  // the count goes on
  model.setKind(QStringLiteral("events"));
  ASSERT_EQ(model.rowCount(), 1);
  EXPECT_EQ(pathAt(model, 0), "/3");
  // A filtered row that ages out leaves the rows too.
  model.post(entry("ads", "/5"));
  model.post(entry("ads", "/6"));
  deliver();
  EXPECT_EQ(model.rowCount(), 0);
}

TEST(RequestLog, OutcomeNamesTheStatusOrTheError) {
  RequestEntry answered = entry("events", "/events", 404);
  EXPECT_EQ(answered.outcome(), "404");
  EXPECT_FALSE(answered.ok());
  RequestEntry failed = entry("ads", "/v2/bsda", 0);
  failed.error = QStringLiteral("timeout: no answer within the time-out of 1000 ms");
  EXPECT_EQ(failed.outcome(), failed.error);
  EXPECT_FALSE(failed.ok());
  RequestEntry fine = entry("ads", "/v2/bsda");
  fine.query = {{"au[]", "au_home"}, {"pcnt_au", "1"}};
  EXPECT_TRUE(fine.ok());
  EXPECT_EQ(fine.queryText(), "au[]=au_home  pcnt_au=1");
  EXPECT_TRUE(fine.logLine().contains("GET /v2/bsda  au[]=au_home  pcnt_au=1  -> 200"));
}

TEST(RequestLog, TheSubjectNamesTheEventTheAdUnitsOrThePage) {
  RequestEntry event = entry("events", "/events");
  event.query = {{"uclid", "uc-1"}, {"event_name", "funnel_impression"}};
  EXPECT_EQ(event.subject(), "funnel_impression");
  RequestEntry click = entry("events", "/aclick");
  click.query = {{"uclid", "uc-1"}};
  EXPECT_EQ(click.subject(), "click");
  RequestEntry display = entry("ads", "/v2/bsda");
  display.query = {{"pt", "HOME"}, {"au[]", "au_home"}, {"au[]", "au_video"}};
  EXPECT_EQ(display.subject(), "au_home, au_video");
  RequestEntry listings = entry("products", "/sda");
  listings.query = {{"page_type", "SEARCH"}, {"keywords[]", "outdoor"}};
  EXPECT_EQ(listings.subject(), "SEARCH");
  EXPECT_EQ(entry("media", "/media/a.png").subject(), "");

  RequestLogModel model;
  model.post(event);
  deliver();
  EXPECT_EQ(model.data(model.index(0), RequestLogModel::SubjectRole).toString(),
            "funnel_impression");
  // The panel reads every role by its name.
  const auto roles = model.roleNames();
  for (const char* name :
       {"time", "service", "method", "path", "query", "outcome", "ok", "elapsed", "subject"}) {
    EXPECT_TRUE(roles.values().contains(QByteArray(name))) << name;
  }
}

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
