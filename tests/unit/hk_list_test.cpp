// CHKList and CHKNode: insert at the head, access by position, unlinking the head, a
// middle node and the tail, and destruction deleting every node exactly once.
#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

#include "HKList.h"

namespace {

// Remembers which node copies were destroyed, in order. Only copies count: those are
// what the list's nodes hold; the caller's originals are not the list's business.
struct TTracked {
  static std::vector<int>& Destroyed() {
    static std::vector<int> destroyed;
    return destroyed;
  }

  explicit TTracked(int aId) : id(aId), copy(false) {}
  TTracked(const TTracked& aOther) : id(aOther.id), copy(true) {}
  TTracked& operator=(const TTracked& aOther) {
    id = aOther.id;
    copy = true;
    return *this;
  }
  ~TTracked() {
    if (copy) Destroyed().push_back(id);
  }

  int id;
  bool copy;
};

class HKListTest : public ::testing::Test {
 protected:
  void SetUp() override { TTracked::Destroyed().clear(); }

  // Inserts the ids in order; the last one ends up at the head.
  static void Fill(CHKList<TTracked>& aList, const std::vector<int>& aIds) {
    for (int id : aIds) ASSERT_TRUE(aList.InsertHead(TTracked(id)));
  }

  // Ids from head to tail, checking every back link on the way.
  static std::vector<int> Ids(const CHKList<TTracked>& aList) {
    std::vector<int> ids;
    const CHKNode<TTracked>* previous = nullptr;
    for (const CHKNode<TTracked>* node = aList.iHead; node != nullptr; node = node->iNext) {
      EXPECT_EQ(previous, node->iPrev) << "back link of node " << node->iData.id;
      ids.push_back(node->iData.id);
      previous = node;
    }
    return ids;
  }
};

TEST_F(HKListTest, StartsEmpty) {
  CHKList<TTracked> list;
  EXPECT_EQ(nullptr, list.iHead);
  EXPECT_EQ(0, list.iCount);
}

TEST_F(HKListTest, InsertIntoAnEmptyListMakesTheOnlyNode) {
  CHKList<TTracked> list;
  ASSERT_TRUE(list.InsertHead(TTracked(1)));
  ASSERT_NE(nullptr, list.iHead);
  EXPECT_EQ(1, list.iHead->iData.id);
  EXPECT_EQ(nullptr, list.iHead->iNext);
  EXPECT_EQ(nullptr, list.iHead->iPrev);
  EXPECT_EQ(1, list.iCount);
}

TEST_F(HKListTest, InsertPutsTheNewNodeBeforeTheOldHead) {
  CHKList<TTracked> list;
  Fill(list, {1});
  CHKNode<TTracked>* oldHead = list.iHead;
  ASSERT_TRUE(list.InsertHead(TTracked(2)));
  CHKNode<TTracked>* newHead = list.iHead;
  ASSERT_NE(oldHead, newHead);
  EXPECT_EQ(2, newHead->iData.id);
  EXPECT_EQ(oldHead, newHead->iNext);
  EXPECT_EQ(nullptr, newHead->iPrev);
  EXPECT_EQ(newHead, oldHead->iPrev);
  EXPECT_EQ(2, list.iCount);
}

TEST_F(HKListTest, NewestInsertIsFirst) {
  CHKList<TTracked> list;
  Fill(list, {1, 2, 3, 4});
  EXPECT_EQ((std::vector<int>{4, 3, 2, 1}), Ids(list));
  EXPECT_EQ(4, list.iCount);
}

TEST_F(HKListTest, InsertKeepsACopyOfTheData) {
  CHKList<TTracked> list;
  TTracked original(5);
  ASSERT_TRUE(list.InsertHead(original));
  original.id = 6;
  EXPECT_EQ(5, list.iHead->iData.id);
}

TEST_F(HKListTest, PositionZeroIsTheHead) {
  CHKList<TTracked> list;
  Fill(list, {1, 2, 3});
  EXPECT_EQ(list.iHead, list.At(0));
}

TEST_F(HKListTest, PositionsCountFromTheHead) {
  CHKList<TTracked> list;
  Fill(list, {1, 2, 3});
  ASSERT_NE(nullptr, list.At(1));
  ASSERT_NE(nullptr, list.At(2));
  EXPECT_EQ(2, list.At(1)->iData.id);
  EXPECT_EQ(1, list.At(2)->iData.id);
}

TEST_F(HKListTest, PositionPastTheTailIsNull) {
  CHKList<TTracked> list;
  EXPECT_EQ(nullptr, list.At(0));
  Fill(list, {1, 2});
  EXPECT_EQ(nullptr, list.At(2));
}

TEST_F(HKListTest, UnlinkingTheHeadMakesItsSuccessorTheHead) {
  CHKList<TTracked> list;
  Fill(list, {1, 2, 3});
  list.Remove(list.At(0));
  EXPECT_EQ((std::vector<int>{2, 1}), Ids(list));
  EXPECT_EQ(nullptr, list.iHead->iPrev);
  EXPECT_EQ(2, list.iCount);
  EXPECT_EQ((std::vector<int>{3}), TTracked::Destroyed());
}

TEST_F(HKListTest, UnlinkingAMiddleNodeJoinsItsNeighbours) {
  CHKList<TTracked> list;
  Fill(list, {1, 2, 3});
  CHKNode<TTracked>* head = list.At(0);
  CHKNode<TTracked>* tail = list.At(2);
  list.Remove(list.At(1));
  EXPECT_EQ(tail, head->iNext);
  EXPECT_EQ(head, tail->iPrev);
  EXPECT_EQ((std::vector<int>{3, 1}), Ids(list));
  EXPECT_EQ(2, list.iCount);
  EXPECT_EQ((std::vector<int>{2}), TTracked::Destroyed());
}

TEST_F(HKListTest, UnlinkingTheTailEndsTheListAtItsPredecessor) {
  CHKList<TTracked> list;
  Fill(list, {1, 2, 3});
  CHKNode<TTracked>* middle = list.At(1);
  list.Remove(list.At(2));
  EXPECT_EQ(nullptr, middle->iNext);
  EXPECT_EQ((std::vector<int>{3, 2}), Ids(list));
  EXPECT_EQ(2, list.iCount);
  EXPECT_EQ((std::vector<int>{1}), TTracked::Destroyed());
}

TEST_F(HKListTest, UnlinkingTheOnlyNodeEmptiesTheList) {
  CHKList<TTracked> list;
  Fill(list, {1});
  list.Remove(list.iHead);
  EXPECT_EQ(nullptr, list.iHead);
  EXPECT_EQ(0, list.iCount);
  EXPECT_EQ((std::vector<int>{1}), TTracked::Destroyed());
}

TEST_F(HKListTest, DestroyingAnEmptyListDeletesNothing) {
  { CHKList<TTracked> list; }
  EXPECT_TRUE(TTracked::Destroyed().empty());
}

TEST_F(HKListTest, DestroyingAOneNodeListDeletesThatNode) {
  {
    CHKList<TTracked> list;
    Fill(list, {1});
    ASSERT_TRUE(TTracked::Destroyed().empty());
  }
  EXPECT_EQ((std::vector<int>{1}), TTracked::Destroyed());
}

TEST_F(HKListTest, DestroyingTheListDeletesEveryNodeOnceFromTheHead) {
  {
    CHKList<TTracked> list;
    Fill(list, {1, 2, 3, 4, 5});
    ASSERT_TRUE(TTracked::Destroyed().empty());
  }
  EXPECT_EQ((std::vector<int>{5, 4, 3, 2, 1}), TTracked::Destroyed());
}

TEST_F(HKListTest, DestroyingAfterUnlinksDeletesOnlyTheRemainingNodes) {
  {
    CHKList<TTracked> list;
    Fill(list, {1, 2, 3, 4});
    list.Remove(list.At(1));
    list.Remove(list.At(0));
    ASSERT_EQ((std::vector<int>{3, 4}), TTracked::Destroyed());
  }
  EXPECT_EQ((std::vector<int>{3, 4, 2, 1}), TTracked::Destroyed());
}

TEST_F(HKListTest, NodeAndListAreDeletedThroughVirtualDestructors) {
  EXPECT_TRUE(std::has_virtual_destructor<CHKNode<TTracked>>::value);
  EXPECT_TRUE(std::has_virtual_destructor<CHKList<TTracked>>::value);
}

}  // namespace
