/* Intrusive AVL tree of the platform. The node sits at the front of the element; the tree
 * is three pointers (root, first, last); a description names the compare function and the
 * places of key and node in the element. */
#ifndef KEL_AVL3_H
#define KEL_AVL3_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct KEL_AVL3_NODE {
    struct KEL_AVL3_NODE *pstParent;
    struct KEL_AVL3_NODE *pstLeft;
    struct KEL_AVL3_NODE *pstRight;
    uint32_t uiHeight;          /* 0xFFFFFFFF while the node is in no tree */
} KEL_AVL3_NODE_S;

typedef struct {
    KEL_AVL3_NODE_S *pstRoot;
    KEL_AVL3_NODE_S *pstFirst;
    KEL_AVL3_NODE_S *pstLast;
} KEL_AVL3_TREE_S;

/* Returns 1 when key 1 is greater, -1 when it is smaller, 0 when equal (sign is what counts). */
typedef int32_t (*KEL_AVL3_COMPARE)(const void *pKey1, const void *pKey2);

typedef struct {
    KEL_AVL3_COMPARE pfCompare;
    uint16_t usKeyOffset;       /* place of the key in the element */
    uint16_t usNodeOffset;      /* place of the node in the element */
} KEL_AVL3_TREE_INFO_S;

#define KEL_AVL3_INIT_NODE(node) \
    ((node).pstParent = (node).pstLeft = (node).pstRight = 0, (node).uiHeight = 0xFFFFFFFFu)

void *KEL_AVL3_Find(KEL_AVL3_TREE_S *pstTree, const void *pKey, const KEL_AVL3_TREE_INFO_S *pstInfo);
/* Null when the element was inserted; otherwise the element already present with an equal key. */
void *KEL_AVL3_Insert_Or_Find(KEL_AVL3_TREE_S *pstTree, KEL_AVL3_NODE_S *pstNode, const KEL_AVL3_TREE_INFO_S *pstInfo);
void KEL_AVL3_Delete(KEL_AVL3_TREE_S *pstTree, KEL_AVL3_NODE_S *pstNode);
void *KEL_AVL3_First(KEL_AVL3_TREE_S *pstTree, const KEL_AVL3_TREE_INFO_S *pstInfo);
void *KEL_AVL3_Next(KEL_AVL3_NODE_S *pstNode, const KEL_AVL3_TREE_INFO_S *pstInfo);

int32_t KEL_MemCmp(const void *pA, const void *pB, uint32_t uiLen);
uint32_t KEL_StrLen(const char *pcText);

#ifdef __cplusplus
}
#endif
#endif
