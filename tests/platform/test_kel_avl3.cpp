// The intrusive AVL tree checked against std::set, with its shape verified by an independent walk.
#include "kel_avl3.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <set>
#include <vector>

namespace {

// The node is deliberately not first here, so element and key arithmetic is exercised.
struct Item {
    uint64_t ulTag;
    KEL_AVL3_NODE_S stNode;
    uint32_t uiKey;
};

int32_t CompareU32(const void *pA, const void *pB)
{
    uint32_t a = *static_cast<const uint32_t *>(pA);
    uint32_t b = *static_cast<const uint32_t *>(pB);
    return a < b ? -1 : (a > b ? 1 : 0);
}

const KEL_AVL3_TREE_INFO_S kInfo = {CompareU32, offsetof(Item, uiKey), offsetof(Item, stNode)};

Item *AsItem(void *pElement)
{
    return static_cast<Item *>(pElement);
}

uint32_t NodeKey(const KEL_AVL3_NODE_S *pstNode)
{
    return reinterpret_cast<const Item *>(reinterpret_cast<const char *>(pstNode) - offsetof(Item, stNode))->uiKey;
}

// Recomputes heights from scratch and checks links, order and balance; returns the height.
int CheckSubtree(const KEL_AVL3_NODE_S *pstNode, const KEL_AVL3_NODE_S *pstParent, size_t &uiCount)
{
    if (pstNode == nullptr) {
        return 0;
    }
    uiCount++;
    EXPECT_EQ(pstNode->pstParent, pstParent);
    const uint32_t uiKey = NodeKey(pstNode);
    EXPECT_TRUE(pstNode->pstLeft == nullptr || NodeKey(pstNode->pstLeft) < uiKey);
    EXPECT_TRUE(pstNode->pstRight == nullptr || NodeKey(pstNode->pstRight) > uiKey);
    int iLeft = CheckSubtree(pstNode->pstLeft, pstNode, uiCount);
    int iRight = CheckSubtree(pstNode->pstRight, pstNode, uiCount);
    EXPECT_LE(std::abs(iLeft - iRight), 1) << "unbalanced at key " << uiKey;
    return 1 + std::max(iLeft, iRight);
}

const KEL_AVL3_NODE_S *Extreme(const KEL_AVL3_NODE_S *pstNode, bool bLeft)
{
    while (pstNode != nullptr && (bLeft ? pstNode->pstLeft : pstNode->pstRight) != nullptr) {
        pstNode = bLeft ? pstNode->pstLeft : pstNode->pstRight;
    }
    return pstNode;
}

void ExpectShape(const KEL_AVL3_TREE_S &stTree, const std::set<uint32_t> &model)
{
    size_t uiCount = 0;
    int iHeight = CheckSubtree(stTree.pstRoot, nullptr, uiCount);
    ASSERT_EQ(uiCount, model.size());
    EXPECT_EQ(stTree.pstFirst, Extreme(stTree.pstRoot, true));
    EXPECT_EQ(stTree.pstLast, Extreme(stTree.pstRoot, false));
    EXPECT_LE(iHeight, 1.45 * std::log2(static_cast<double>(model.size()) + 2));
}

std::vector<uint32_t> Walk(KEL_AVL3_TREE_S &stTree)
{
    std::vector<uint32_t> keys;
    for (void *p = KEL_AVL3_First(&stTree, &kInfo); p != nullptr; p = KEL_AVL3_Next(&AsItem(p)->stNode, &kInfo)) {
        keys.push_back(AsItem(p)->uiKey);
    }
    return keys;
}

class AvlTree : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (uint32_t i = 0; i < items.size(); i++) {
            items[i].ulTag = 0xA5A5A5A5u;
            items[i].uiKey = i;
            KEL_AVL3_INIT_NODE(items[i].stNode);
        }
    }
    bool Insert(uint32_t uiKey) { return KEL_AVL3_Insert_Or_Find(&tree, &items[uiKey].stNode, &kInfo) == nullptr; }
    KEL_AVL3_TREE_S tree = {nullptr, nullptr, nullptr};
    std::vector<Item> items = std::vector<Item>(600);
};

}  // namespace

TEST_F(AvlTree, RandomOperationsMatchAnOrderedSetAndStayBalanced)
{
    std::mt19937 rng(20261123);
    std::set<uint32_t> model;
    std::uniform_int_distribution<uint32_t> pickKey(0, static_cast<uint32_t>(items.size()) - 1);
    for (int iStep = 0; iStep < 6000; iStep++) {
        uint32_t uiKey = pickKey(rng);
        switch (rng() % 3) {
            case 0: {
                bool bPresent = model.count(uiKey) != 0;
                Item twin = items[uiKey];  // a second element with the same key, in no tree
                KEL_AVL3_INIT_NODE(twin.stNode);
                void *pFound = KEL_AVL3_Insert_Or_Find(&tree, bPresent ? &twin.stNode : &items[uiKey].stNode, &kInfo);
                EXPECT_EQ(pFound, bPresent ? &items[uiKey] : nullptr);
                EXPECT_EQ(twin.stNode.uiHeight, 0xFFFFFFFFu) << "a refused element must stay unlinked";
                model.insert(uiKey);
                break;
            }
            case 1:
                KEL_AVL3_Delete(&tree, &items[uiKey].stNode);  // also for a key that is absent
                EXPECT_EQ(items[uiKey].stNode.uiHeight, 0xFFFFFFFFu);
                model.erase(uiKey);
                break;
            default:
                EXPECT_EQ(KEL_AVL3_Find(&tree, &uiKey, &kInfo), model.count(uiKey) ? &items[uiKey] : nullptr);
                break;
        }
        ASSERT_NO_FATAL_FAILURE(ExpectShape(tree, model));
        ASSERT_EQ(Walk(tree), std::vector<uint32_t>(model.begin(), model.end())) << "step " << iStep;
    }
    for (const Item &item : items) {
        EXPECT_EQ(item.ulTag, 0xA5A5A5A5u) << "the tree wrote outside the node";
    }
}

TEST(KelBytes, MemCmpComparesBytesAsUnsignedAndHonoursLength)
{
    const unsigned char a[] = {1, 2, 0x80};
    const unsigned char b[] = {1, 2, 0x01};
    EXPECT_GT(KEL_MemCmp(a, b, 3), 0);
    EXPECT_LT(KEL_MemCmp(b, a, 3), 0);
    EXPECT_EQ(KEL_MemCmp(a, b, 2), 0);
    EXPECT_EQ(KEL_MemCmp(a, b, 0), 0);
}

TEST(KelBytes, StrLenOfNullIsZero)
{
    EXPECT_EQ(KEL_StrLen(nullptr), 0u);
    EXPECT_EQ(KEL_StrLen("display"), 7u);
}
