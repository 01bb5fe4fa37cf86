// The organisation page without servers: the tree over a directory (order, placement,
// model consistency), search in both modes with the keyboard, the card's buttons,
// presence reaching rows and card, and avatars asked only for rows on screen.
#include <QtTest>

#include <QAbstractItemModelTester>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QScrollBar>
#include <QTemporaryDir>

#include "allmembertree.h"
#include "avatarmanager.h"
#include "avatarpixmapcache.h"
#include "colleagenamesearchedit.h"
#include "configstore.h"
#include "directorystore.h"
#include "orgnizationview.h"
#include "orgtreedelegate.h"
#include "orgtreemodel.h"
#include "personalinforcard.h"

namespace {
QJsonObject dept(const QString& id, const QString& parent, const QString& name) {
    return {{"id", id}, {"parentId", parent}, {"orgName", name}};
}

QJsonObject user(const QString& id, const QString& section, const QString& name,
                 const QString& pinyin, const QString& icon = QString()) {
    return {{"id", id},
            {"section", section},
            {"realName", name},
            {"userName", "u" + id},
            {"fullNamePinyin", pinyin},
            {"shortNamePinyin", pinyin.left(2)},
            {"deptName", "部门" + section},
            {"mobile", "138" + id},
            {"email", id + "@corp.cn"},
            {"userIcon", icon}};
}

QByteArray reply(const QJsonArray& depts, const QJsonArray& users) {
    return QJsonDocument(QJsonObject{{"errorCode", 0},
                                     {"results",
                                      QJsonObject{{"allDeptList", depts}, {"allUserList", users}}}})
        .toJson(QJsonDocument::Compact);
}

QStringList names(const QAbstractItemModel& m, const QModelIndex& parent) {
    QStringList out;
    for (int r = 0; r < m.rowCount(parent); ++r) out << m.index(r, 0, parent).data().toString();
    return out;
}

QModelIndex child(const QAbstractItemModel& m, const QModelIndex& parent, const QString& name) {
    for (int r = 0; r < m.rowCount(parent); ++r)
        if (m.index(r, 0, parent).data().toString() == name) return m.index(r, 0, parent);
    return QModelIndex();
}
}  // namespace

class TestOrgView : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void treeKeepsDirectoryOrderAndPlacesEveryone();
    void searchInBothModesWithTheKeyboard();
    void cardShowsTheColleagueAndForwardsItsButtons();
    void presenceReachesRowsAndCard();
    void avatarsAreAskedOnlyForRowsOnScreen();

private:
    void loadSmallCompany(DirectoryStore* store);
};

void TestOrgView::initTestCase() { ConfigStore::instance().init(); }

// "研发" is listed before its parent "总部"; "9" is a colleague of a department that does
// not exist; the tribes give the search something in tribe mode.
void TestOrgView::loadSmallCompany(DirectoryStore* store) {
    QVERIFY(
        store->load(reply({dept("2", "1", "研发"), dept("1", "", "总部"), dept("3", "1", "市场"),
                           dept("4", "2", "平台组")},
                          {user("10", "2", "李雷", "lilei"), user("11", "1", "韩梅梅", "hanmeimei"),
                           user("12", "4", "Lily", "lily"), user("9", "77", "王五", "wangwu"),
                           user("13", "2", "李四", "lisi")})));
    store->setSelfId("11");
    store->setTribes(
        {{"500", "Alpha 项目", "1", "11", "s", false}, {"501", "Beta 项目", "1", "10", "", false}});
}

void TestOrgView::treeKeepsDirectoryOrderAndPlacesEveryone() {
    DirectoryStore store;
    loadSmallCompany(&store);
    OrgTreeModel model(&store);
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);

    // Top: the one real root, then the branch for colleagues of unknown departments.
    QCOMPARE(names(model, QModelIndex()), (QStringList{"总部", OrgTreeModel::othersName()}));
    const QModelIndex hq = child(model, QModelIndex(), "总部");
    // Sub-departments first in reply order, then the department's own people.
    QCOMPARE(names(model, hq), (QStringList{"研发", "市场", "韩梅梅"}));
    const QModelIndex rd = child(model, hq, "研发");
    QCOMPARE(names(model, rd), (QStringList{"平台组", "李雷", "李四"}));
    QCOMPARE(names(model, child(model, rd, "平台组")), QStringList{"Lily"});
    const QModelIndex others = child(model, QModelIndex(), OrgTreeModel::othersName());
    QCOMPARE(names(model, others), QStringList{"王五"});

    // Every colleague can be found again where the tree shows them.
    for (const QString id : {"10", "11", "12", "9", "13"}) {
        const QModelIndex at = model.indexOfColleague(id);
        QVERIFY2(at.isValid(), qPrintable(id));
        QCOMPARE(at.data(OrgTreeModel::IdRole).toString(), id);
        QCOMPARE(at.data(OrgTreeModel::KindRole).toString(), QString("user"));
    }
    QCOMPARE(model.indexOfColleague("10").parent(), rd);
    QVERIFY(!model.indexOfColleague("nobody").isValid());
    QCOMPARE(model.rowCount(model.indexOfColleague("10")), 0);

    // A colleague learnt of later joins the tree when the page is next shown.
    OrgnizationView page(nullptr, &store);
    QVERIFY(!page.tree()->orgModel()->isStale());
    QCOMPARE(store.addColleagues(
                 QJsonDocument(
                     QJsonObject{{"errorCode", 0},
                                 {"results", QJsonArray{user("88", "404", "外部联系人", "wb")}}})
                     .toJson()),
             QStringList{"88"});
    QVERIFY(page.tree()->orgModel()->isStale());
    page.show();
    QVERIFY(!page.tree()->orgModel()->isStale());
    const QAbstractItemModel& shown = *page.tree()->orgModel();
    QCOMPARE(names(shown, child(shown, QModelIndex(), OrgTreeModel::othersName())),
             (QStringList{"王五", "外部联系人"}));
    page.hide();

    // A new reply replaces the tree; without unplaced colleagues the extra branch goes.
    QVERIFY(store.load(reply({dept("1", "", "总部")}, {user("11", "1", "韩梅梅", "hmm")})));
    model.reload();
    QCOMPARE(names(model, QModelIndex()), QStringList{"总部"});
    QCOMPARE(names(model, model.index(0, 0)), QStringList{"韩梅梅"});
}

void TestOrgView::searchInBothModesWithTheKeyboard() {
    DirectoryStore store;
    loadSmallCompany(&store);
    OrgnizationView page(nullptr, &store);
    page.resize(800, 500);
    page.show();
    ColleageNameSearchEdit* edit = page.searchEdit();
    QSignalSpy chosen(edit, &ColleageNameSearchEdit::selectedSearchResultItem);

    // "li" is in the pinyin of 李雷, Lily's pinyin and 李四 (not "Lily" itself: case counts).
    QTest::keyClicks(edit, "li");
    QVERIFY(page.isSearching());
    QListWidget* results = edit->resultList();
    QCOMPARE(results->count(), 3);
    QCOMPARE(results->currentRow(), 0);
    QTest::keyClick(edit, Qt::Key_Down);
    QTest::keyClick(edit, Qt::Key_Down);
    QCOMPARE(results->currentRow(), 2);
    QTest::keyClick(edit, Qt::Key_Down);  // past the end comes back to the top
    QCOMPARE(results->currentRow(), 0);
    QTest::keyClick(edit, Qt::Key_Up);
    QCOMPARE(results->currentRow(), 2);
    const QString expected = results->item(2)->data(Qt::UserRole).toString();
    QTest::keyClick(edit, Qt::Key_Return);
    QCOMPARE(chosen.count(), 1);
    QCOMPARE(chosen.first().first().toString(), expected);
    // The page goes back to the tree, opened at the colleague, and shows their card.
    QVERIFY(!page.isSearching());
    QVERIFY(edit->text().isEmpty());
    QCOMPARE(page.tree()->currentIndex().data(OrgTreeModel::IdRole).toString(), expected);
    QVERIFY(page.tree()->isExpanded(page.tree()->currentIndex().parent()));
    QCOMPARE(page.card()->userId(), expected);

    // Erasing what was typed brings the tree back without choosing anything.
    QTest::keyClicks(edit, "Li");
    QVERIFY(page.isSearching());
    QCOMPARE(results->count(), 1);  // Lily only
    edit->clear();
    QVERIFY(!page.isSearching());
    QCOMPARE(chosen.count(), 1);

    // Tribe mode searches tribe names, not people.
    ColleageNameSearchEdit tribes(nullptr, &store);
    tribes.setTribeCompleter();
    QSignalSpy tribeChosen(&tribes, &ColleageNameSearchEdit::selectedSearchResultItem);
    tribes.insert("项目");  // typed through an input method
    QCOMPARE(tribes.resultList()->count(), 2);
    QTest::keyClick(&tribes, Qt::Key_Down);
    QTest::keyClick(&tribes, Qt::Key_Enter);
    QCOMPARE(tribeChosen.first().first().toString(), QString("501"));
    tribes.clear();
    QTest::keyClicks(&tribes, "li");
    QCOMPARE(tribes.resultList()->count(), 0);

    // Namesakes are told apart by the department beside the name, also when the record
    // names the department by its id only; tribes have none.
    QJsonObject second = user("14", "3", "李雷", "lilei");
    second.remove("deptName");
    store.addColleagues(
        QJsonDocument(QJsonObject{{"errorCode", 0}, {"results", QJsonArray{second}}})
            .toJson(QJsonDocument::Compact));
    edit->insert("李雷");
    QStringList rows, depts;
    for (int i = 0; i < results->count(); ++i) {
        rows << results->item(i)->text();
        depts << results->item(i)->data(ColleageNameSearchEdit::DepartmentRole).toString();
    }
    rows.sort();
    depts.sort();
    QCOMPARE(rows, (QStringList{"李雷 · 市场", "李雷 · 部门2"}));
    QCOMPARE(depts, (QStringList{"市场", "部门2"}));
    tribes.clear();
    tribes.insert("Alpha");
    QCOMPARE(tribes.resultList()->item(0)->text(), QString("Alpha 项目"));
}

void TestOrgView::cardShowsTheColleagueAndForwardsItsButtons() {
    DirectoryStore store;
    loadSmallCompany(&store);
    OrgnizationView page(nullptr, &store);
    QSignalSpy chat(&page, &OrgnizationView::chatButtonClicked);
    QSignalSpy share(&page, &OrgnizationView::shareColleague);
    PersonalInforCard* card = page.card();

    page.showViewOfUser("10");
    QCOMPARE(card->nameLabel()->text(), QString("李雷"));
    QCOMPARE(card->departmentLabel()->text(), QString("部门2"));
    QCOMPARE(card->mobileLabel()->text(), QString("13810"));
    QCOMPARE(card->emailLabel()->text(), QString("10@corp.cn"));
    QTest::mouseClick(card->chatButton(), Qt::LeftButton);
    QTest::mouseClick(card->shareButton(), Qt::LeftButton);
    QCOMPARE(chat.count(), 1);
    QCOMPARE(chat.first().first().toString(), QString("10"));
    QCOMPARE(share.count(), 1);
    QCOMPARE(share.first().first().toString(), QString("10"));

    // One's own card can be shared but offers no chat with oneself.
    page.showViewOfUser("11");
    QVERIFY(!card->chatButton()->isEnabled());
    QVERIFY(card->shareButton()->isEnabled());

    // An id the directory does not know leaves an empty card with nothing to press.
    QVERIFY(!card->setUser("4040"));
    QVERIFY(card->nameLabel()->text().isEmpty());
    QVERIFY(!card->chatButton()->isEnabled() && !card->shareButton()->isEnabled());
    card->ChatBtnClicked();
    card->ShareBtnClicked();
    QCOMPARE(chat.count(), 1);
    QCOMPARE(share.count(), 1);

    // Double-clicking a colleague in the tree opens the chat with them.
    page.resize(800, 500);
    page.show();
    QVERIFY(QTest::qWaitForWindowExposed(&page));
    QVERIFY(page.tree()->revealColleague("13"));
    const QRect row = page.tree()->visualRect(page.tree()->currentIndex());
    QTest::mouseClick(page.tree()->viewport(), Qt::LeftButton, Qt::NoModifier, row.center());
    QTest::mouseDClick(page.tree()->viewport(), Qt::LeftButton, Qt::NoModifier, row.center());
    QCOMPARE(chat.count(), 2);
    QCOMPARE(chat.last().first().toString(), QString("13"));
}

void TestOrgView::presenceReachesRowsAndCard() {
    DirectoryStore store;
    loadSmallCompany(&store);
    OrgnizationView page(nullptr, &store);
    OrgTreeModel* model = page.tree()->orgModel();
    QSignalSpy changed(model, &QAbstractItemModel::dataChanged);
    page.showViewOfUser("10");
    QCOMPARE(page.card()->stateLabel()->text(), QString("离线"));
    QVERIFY(!model->indexOfColleague("10").data(OrgTreeModel::OnlineRole).toBool());
    // The user is on line while using the client, whatever the server has said.
    QVERIFY(model->indexOfColleague("11").data(OrgTreeModel::OnlineRole).toBool());

    store.setOnline("10", true);
    page.setOnline("10", true);
    QCOMPARE(changed.count(), 1);
    QCOMPARE(changed.first().at(0).toModelIndex(), model->indexOfColleague("10"));
    QVERIFY(model->indexOfColleague("10").data(OrgTreeModel::OnlineRole).toBool());
    QCOMPARE(page.card()->stateLabel()->text(), QString("在线"));

    // Somebody else's change leaves the card alone; an unknown id changes nothing.
    store.setOnline("13", true);
    page.setOnline("13", true);
    QCOMPARE(page.card()->stateLabel()->text(), QString("在线"));
    page.setOnline("nobody", true);
    QCOMPARE(changed.count(), 2);

    store.setOnline("10", false);
    page.setOnline("10", false);
    QCOMPARE(page.card()->stateLabel()->text(), QString("离线"));
}

void TestOrgView::avatarsAreAskedOnlyForRowsOnScreen() {
    QTemporaryDir folder;
    DirectoryStore store;
    QJsonArray people;
    // Addresses nobody answers: the downloads fail, which is all this needs.
    for (int i = 0; i < 3000; ++i)
        people.append(user(QString::number(1000 + i), "1", QString("同事%1").arg(i), "tongshi",
                           "http://127.0.0.1:9/a.png"));
    QVERIFY(store.load(reply({dept("1", "", "总部")}, people)));
    quelix::AvatarManager avatars(folder.path());
    AvatarPixmapCache cache(&store, &avatars);
    AllMemberTree tree(nullptr, &store, &cache);
    tree.resize(300, 400);
    tree.show();
    QVERIFY(QTest::qWaitForWindowExposed(&tree));
    QCOMPARE(cache.requested(), 0);  // departments have no pictures
    tree.expand(tree.orgModel()->index(0, 0));
    QTest::qWait(50);
    const int onScreen = tree.viewport()->height() / OrgTreeDelegate::kRowHeight + 2;
    QVERIFY2(cache.requested() > 0 && cache.requested() <= onScreen,
             qPrintable(QString("%1 asked, %2 rows fit").arg(cache.requested()).arg(onScreen)));
    const int before = cache.requested();
    tree.verticalScrollBar()->setValue(tree.verticalScrollBar()->maximum());
    QTest::qWait(50);
    QVERIFY(cache.requested() > before);
    QVERIFY(cache.requested() <= 2 * onScreen);
}

QTEST_MAIN(TestOrgView)
#include "tst_orgview.moc"
