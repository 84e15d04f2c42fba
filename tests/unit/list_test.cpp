#include "config/list.h"
#include "config/record.h"

#include <gtest/gtest.h>

struct Item {
    int number;
    ListNode node;
};

class AList : public testing::Test {
protected:
    void SetUp() override
    {
        listInit(&head);
        for (int i = 0; i < 3; ++i) {
            items[i].number = i + 1;
            listAddTail(&items[i].node, &head);
        }
    }
    std::string forwards()
    {
        std::string order;
        for (const Item &item : ELEMENTS(Item, node, &head))
            order += std::to_string(item.number);
        return order;
    }

    ListNode head;
    Item items[3];
};

TEST_F(AList, KeepsTheOrderOfInsertion)
{
    EXPECT_EQ(forwards(), "123");
}

TEST_F(AList, IsWalkedBackwardsFromTheNewest)
{
    std::string order;
    for (const Item &item : ELEMENTS_BACKWARDS(Item, node, &head))
        order += std::to_string(item.number);
    EXPECT_EQ(order, "321");
}

TEST_F(AList, LosesADeletedElementWhosePointersAreThenNull)
{
    listDel(&items[1].node);
    EXPECT_EQ(forwards(), "13");
    EXPECT_EQ(items[1].node.prev, nullptr);
    EXPECT_EQ(items[1].node.next, nullptr);
}

TEST_F(AList, LeavesANodeAloneThatIsInNoList)
{
    listDel(&items[1].node);
    listDel(&items[1].node);
    EXPECT_EQ(forwards(), "13");
}

TEST_F(AList, MayLoseTheElementOnWhichAWalkStands)
{
    for (Item &item : ELEMENTS(Item, node, &head))
        listDel(&item.node);
    EXPECT_TRUE(listEmpty(&head));
}

TEST_F(AList, MovesWholeToTheTailOfAnother)
{
    ListNode other;
    listInit(&other);
    listMoveAll(&head, &other);
    EXPECT_TRUE(listEmpty(&head));
    EXPECT_EQ(getListObjNum(&other), 3);
    EXPECT_EQ(LAST_ELEMENT(Item, node, &other), &items[2]);
}

TEST_F(AList, CountsItsElements)
{
    EXPECT_EQ(getListObjNum(&head), 3);
    ListNode empty;
    listInit(&empty);
    EXPECT_EQ(getListObjNum(&empty), 0);
    EXPECT_EQ(getListObjNum(nullptr), 0);
}
