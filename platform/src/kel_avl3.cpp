/* Intrusive AVL tree of the platform stand-in, and its byte helpers.
 * The tree never allocates: it links nodes that live inside the caller's elements.
 *
 * Each node carries its parent and two children; uiHeight is the height of the subtree under
 * the node (1 for a leaf) while it is in a tree and all ones while it is in none. For every node
 * the heights of its two subtrees differ by at most one, which keeps every path O(log n).
 * The tree also keeps its smallest and largest node so that a walk starts in constant time.
 * Removal relinks nodes rather than moving keys, so an element's address never changes. */
#include "kel_avl3.h"

#include <cstring>

namespace {

using Node = KEL_AVL3_NODE_S;

constexpr uint32_t kNotInTree = 0xFFFFFFFFu;

uint32_t HeightOf(const Node *pstNode)
{
    return pstNode != nullptr ? pstNode->uiHeight : 0;
}

int32_t BalanceOf(const Node *pstNode)
{
    return static_cast<int32_t>(HeightOf(pstNode->pstLeft)) - static_cast<int32_t>(HeightOf(pstNode->pstRight));
}

void UpdateHeight(Node *pstNode)
{
    uint32_t uiLeft = HeightOf(pstNode->pstLeft);
    uint32_t uiRight = HeightOf(pstNode->pstRight);
    pstNode->uiHeight = 1 + (uiLeft > uiRight ? uiLeft : uiRight);
}

void *ElementOf(Node *pstNode, const KEL_AVL3_TREE_INFO_S *pstInfo)
{
    return pstNode != nullptr ? reinterpret_cast<char *>(pstNode) - pstInfo->usNodeOffset : nullptr;
}

const void *KeyOf(Node *pstNode, const KEL_AVL3_TREE_INFO_S *pstInfo)
{
    return static_cast<const char *>(ElementOf(pstNode, pstInfo)) + pstInfo->usKeyOffset;
}

Node *Leftmost(Node *pstNode)
{
    while (pstNode->pstLeft != nullptr) {
        pstNode = pstNode->pstLeft;
    }
    return pstNode;
}

Node *Rightmost(Node *pstNode)
{
    while (pstNode->pstRight != nullptr) {
        pstNode = pstNode->pstRight;
    }
    return pstNode;
}

Node *Successor(Node *pstNode)
{
    if (pstNode->pstRight != nullptr) {
        return Leftmost(pstNode->pstRight);
    }
    Node *pstParent = pstNode->pstParent;
    while (pstParent != nullptr && pstNode == pstParent->pstRight) {
        pstNode = pstParent;
        pstParent = pstParent->pstParent;
    }
    return pstParent;
}

Node *Predecessor(Node *pstNode)
{
    if (pstNode->pstLeft != nullptr) {
        return Rightmost(pstNode->pstLeft);
    }
    Node *pstParent = pstNode->pstParent;
    while (pstParent != nullptr && pstNode == pstParent->pstLeft) {
        pstNode = pstParent;
        pstParent = pstParent->pstParent;
    }
    return pstParent;
}

/* Puts pstNew where pstOld hangs below pstParent (or at the root). */
void ReplaceChild(KEL_AVL3_TREE_S *pstTree, Node *pstParent, Node *pstOld, Node *pstNew)
{
    if (pstParent == nullptr) {
        pstTree->pstRoot = pstNew;
    } else if (pstParent->pstLeft == pstOld) {
        pstParent->pstLeft = pstNew;
    } else {
        pstParent->pstRight = pstNew;
    }
    if (pstNew != nullptr) {
        pstNew->pstParent = pstParent;
    }
}

Node *RotateLeft(KEL_AVL3_TREE_S *pstTree, Node *pstTop)
{
    Node *pstPivot = pstTop->pstRight;
    pstTop->pstRight = pstPivot->pstLeft;
    if (pstPivot->pstLeft != nullptr) {
        pstPivot->pstLeft->pstParent = pstTop;
    }
    ReplaceChild(pstTree, pstTop->pstParent, pstTop, pstPivot);
    pstPivot->pstLeft = pstTop;
    pstTop->pstParent = pstPivot;
    UpdateHeight(pstTop);
    UpdateHeight(pstPivot);
    return pstPivot;
}

Node *RotateRight(KEL_AVL3_TREE_S *pstTree, Node *pstTop)
{
    Node *pstPivot = pstTop->pstLeft;
    pstTop->pstLeft = pstPivot->pstRight;
    if (pstPivot->pstRight != nullptr) {
        pstPivot->pstRight->pstParent = pstTop;
    }
    ReplaceChild(pstTree, pstTop->pstParent, pstTop, pstPivot);
    pstPivot->pstRight = pstTop;
    pstTop->pstParent = pstPivot;
    UpdateHeight(pstTop);
    UpdateHeight(pstPivot);
    return pstPivot;
}

/* Restores the height bound of one subtree; returns the subtree's new top. */
Node *BalanceSubtree(KEL_AVL3_TREE_S *pstTree, Node *pstNode)
{
    UpdateHeight(pstNode);
    int32_t iBalance = BalanceOf(pstNode);
    if (iBalance > 1) {
        if (BalanceOf(pstNode->pstLeft) < 0) {
            RotateLeft(pstTree, pstNode->pstLeft);
        }
        return RotateRight(pstTree, pstNode);
    }
    if (iBalance < -1) {
        if (BalanceOf(pstNode->pstRight) > 0) {
            RotateRight(pstTree, pstNode->pstRight);
        }
        return RotateLeft(pstTree, pstNode);
    }
    return pstNode;
}

/* Walks up from pstNode fixing heights and balance; stops once a subtree's height is unchanged,
 * since nothing above it can have changed either. */
void Rebalance(KEL_AVL3_TREE_S *pstTree, Node *pstNode)
{
    while (pstNode != nullptr) {
        uint32_t uiOldHeight = pstNode->uiHeight;
        Node *pstTop = BalanceSubtree(pstTree, pstNode);
        if (pstTop->uiHeight == uiOldHeight) {
            return;
        }
        pstNode = pstTop->pstParent;
    }
}

/* Unlinks a node with two children by putting its in-order successor in its place, with the
 * node's height, which is the old height of that place. Returns the lowest node whose subtree
 * changed. */
Node *UnlinkInner(KEL_AVL3_TREE_S *pstTree, Node *pstNode)
{
    Node *pstSucc = Leftmost(pstNode->pstRight);
    Node *pstLowest = pstSucc;
    if (pstSucc != pstNode->pstRight) {
        pstLowest = pstSucc->pstParent;
        pstLowest->pstLeft = pstSucc->pstRight;
        if (pstSucc->pstRight != nullptr) {
            pstSucc->pstRight->pstParent = pstLowest;
        }
        pstSucc->pstRight = pstNode->pstRight;
        pstSucc->pstRight->pstParent = pstSucc;
    }
    pstSucc->pstLeft = pstNode->pstLeft;
    pstSucc->pstLeft->pstParent = pstSucc;
    ReplaceChild(pstTree, pstNode->pstParent, pstNode, pstSucc);
    pstSucc->uiHeight = pstNode->uiHeight;
    return pstLowest;
}

}  // namespace

/* ---- lookup and walk ---- */

extern "C" void *KEL_AVL3_Find(KEL_AVL3_TREE_S *pstTree, const void *pKey, const KEL_AVL3_TREE_INFO_S *pstInfo)
{
    if (pstTree == nullptr || pstInfo == nullptr) {
        return nullptr;
    }
    Node *pstNode = pstTree->pstRoot;
    while (pstNode != nullptr) {
        int32_t iCmp = pstInfo->pfCompare(pKey, KeyOf(pstNode, pstInfo));
        if (iCmp == 0) {
            return ElementOf(pstNode, pstInfo);
        }
        pstNode = iCmp < 0 ? pstNode->pstLeft : pstNode->pstRight;
    }
    return nullptr;
}

extern "C" void *KEL_AVL3_First(KEL_AVL3_TREE_S *pstTree, const KEL_AVL3_TREE_INFO_S *pstInfo)
{
    if (pstTree == nullptr || pstInfo == nullptr) {
        return nullptr;
    }
    return ElementOf(pstTree->pstFirst, pstInfo);
}

extern "C" void *KEL_AVL3_Next(KEL_AVL3_NODE_S *pstNode, const KEL_AVL3_TREE_INFO_S *pstInfo)
{
    if (pstNode == nullptr || pstInfo == nullptr || pstNode->uiHeight == kNotInTree) {
        return nullptr;
    }
    return ElementOf(Successor(pstNode), pstInfo);
}

/* ---- insertion and removal ---- */

extern "C" void *KEL_AVL3_Insert_Or_Find(KEL_AVL3_TREE_S *pstTree, KEL_AVL3_NODE_S *pstNode,
                                         const KEL_AVL3_TREE_INFO_S *pstInfo)
{
    if (pstTree == nullptr || pstNode == nullptr || pstInfo == nullptr) {
        return nullptr;
    }
    const void *pKey = KeyOf(pstNode, pstInfo);
    Node *pstParent = nullptr;
    Node **ppstLink = &pstTree->pstRoot;
    bool bLeftmost = true;
    bool bRightmost = true;
    while (*ppstLink != nullptr) {
        pstParent = *ppstLink;
        int32_t iCmp = pstInfo->pfCompare(pKey, KeyOf(pstParent, pstInfo));
        if (iCmp == 0) {
            return ElementOf(pstParent, pstInfo);
        }
        bLeftmost = bLeftmost && iCmp < 0;
        bRightmost = bRightmost && iCmp > 0;
        ppstLink = iCmp < 0 ? &pstParent->pstLeft : &pstParent->pstRight;
    }
    pstNode->pstParent = pstParent;
    pstNode->pstLeft = nullptr;
    pstNode->pstRight = nullptr;
    pstNode->uiHeight = 1;
    *ppstLink = pstNode;
    if (bLeftmost) {
        pstTree->pstFirst = pstNode;
    }
    if (bRightmost) {
        pstTree->pstLast = pstNode;
    }
    Rebalance(pstTree, pstParent);
    return nullptr;
}

/* A node that is in no tree is left as it is. */
extern "C" void KEL_AVL3_Delete(KEL_AVL3_TREE_S *pstTree, KEL_AVL3_NODE_S *pstNode)
{
    if (pstTree == nullptr || pstNode == nullptr || pstNode->uiHeight == kNotInTree) {
        return;
    }
    if (pstTree->pstFirst == pstNode) {
        pstTree->pstFirst = Successor(pstNode);
    }
    if (pstTree->pstLast == pstNode) {
        pstTree->pstLast = Predecessor(pstNode);
    }
    if (pstNode->pstLeft != nullptr && pstNode->pstRight != nullptr) {
        Rebalance(pstTree, UnlinkInner(pstTree, pstNode));
    } else {
        Node *pstChild = pstNode->pstLeft != nullptr ? pstNode->pstLeft : pstNode->pstRight;
        Node *pstParent = pstNode->pstParent;
        ReplaceChild(pstTree, pstParent, pstNode, pstChild);
        Rebalance(pstTree, pstParent);
    }
    KEL_AVL3_INIT_NODE(*pstNode);
}

/* ---- byte helpers ---- */

extern "C" int32_t KEL_MemCmp(const void *pA, const void *pB, uint32_t uiLen)
{
    if (uiLen == 0 || pA == pB) {
        return 0;
    }
    int iCmp = std::memcmp(pA, pB, uiLen);
    return iCmp < 0 ? -1 : (iCmp > 0 ? 1 : 0);
}

extern "C" uint32_t KEL_StrLen(const char *pcText)
{
    return pcText != nullptr ? static_cast<uint32_t>(std::strlen(pcText)) : 0;
}
