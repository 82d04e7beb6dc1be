/** @file
 * Structured reports: the tree of nodes. The conventions stand in vexalkit.h.
 *
 * A report is a message whose content lies in nested items of (0040,A730). Beside it stands a tree of nodes,
 * one for the message (the root) and one for each item; a node has the id of its message or item. All content
 * stays in the attributes. While an object is part of a tree, it is none for calls that ask for a message or
 * an item by kind; VX_SR_To_Message gives the message back, for example to write it. Threads may use one
 * tree; those that walk the children of one node share its place.
 */
#ifndef VEXALKIT_REPORTS_H
#define VEXALKIT_REPORTS_H

#include "base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Structured reports: the tree (PS3.3 section C.17.3) ----------------------------------------------- */

/**
 * Makes a message the root of a new tree, without nodes for the items that it holds.
 * @param MsgID  message that is part of no tree.
 * @param RootID  [out] the root, which is MsgID; untouched after a failure.
 * @retval VX_INVALID_MESSAGE_ID  MsgID is no message, or part of a tree already.
 */
VX_API VX_STATUS VX_SR_Add_Root(int32_t MsgID, int32_t* RootID);

/**
 * Adds an item as the last child of a node, and as the last item of its (0040,A730).
 * The next call of VX_SR_Get_Next_Child gives this child.
 * @param ParentID  node that gets the child.
 * @param ChildID  item that is part of no tree; the parent's from here on.
 * @retval VX_INVALID_SR_ID  ParentID is no node, or ChildID no object.
 * @retval VX_INVALID_ITEM_ID  ChildID is no item, or part of a tree already.
 * @return Also the statuses of VX_Set_Next_Value_From_Int where (0040,A730) does not take the item. It is
 *   then among the children, but can not be used as a node.
 */
VX_API VX_STATUS VX_SR_Add_Child(int32_t ParentID, int32_t ChildID);

/**
 * Gives the root of a node's tree; the walk over the root's children starts over.
 * @param NodeID  node.
 * @param RootID  [out] the root, which may be the node itself; untouched after a failure.
 * @retval VX_INVALID_SR_ID  NodeID is no node.
 */
VX_API VX_STATUS VX_SR_Get_Root(int32_t NodeID, int32_t* RootID);

/**
 * Gives the first child of a node, from which VX_SR_Get_Next_Child goes on.
 * @param NodeID  node.
 * @param ChildID  [out] the child; 0 if there is none, which is no failure; untouched after a failure.
 * @param IsLast  [out] 0 if another child follows, else 1; untouched after a failure.
 * @retval VX_INVALID_SR_ID  NodeID is no node.
 */
VX_API VX_STATUS VX_SR_Get_First_Child(int32_t NodeID, int32_t* ChildID, int32_t* IsLast);

/**
 * Gives the child of a node behind the one that was given last.
 * A walk starts with VX_SR_Get_First_Child; VX_SR_Add_Child and VX_SR_Delete_Child move its place.
 * @param NodeID  node.
 * @param ChildID  [out] the child; 0 behind the last one, which is no failure; untouched after a failure.
 * @param IsLast  [out] 0 if another child follows, else 1; untouched after a failure.
 * @retval VX_INVALID_MESSAGE_ID  NodeID is no node.
 */
VX_API VX_STATUS VX_SR_Get_Next_Child(int32_t NodeID, int32_t* ChildID, int32_t* IsLast);

/**
 * Counts the children of a node, without what lies below them.
 * @param NodeID  node.
 * @param Count  [out] the number; untouched after a failure.
 * @retval VX_UNABLE_TO_GET_SR_ID  NodeID is no node.
 * @retval VX_INVALID_SR_ID  it is a child that VX_SR_Add_Child could not put into (0040,A730).
 */
VX_API VX_STATUS VX_SR_Get_Child_Count(int32_t NodeID, int32_t* Count);

/**
 * Tells the place of a node in its tree, such as "1.2.1"; that of the root is "1".
 * The numbers are those of the nodes among their siblings, from 1. They change when a left sibling goes.
 * @param NodeID  node.
 * @param BufferSize  bytes of Location, the NUL counted; 81 are always enough.
 * @param Location  [out] the place, cut to what fits; empty for one of more than 80 characters; untouched
 *   after a failure.
 * @retval VX_NULL_POINTER_PARM  also: BufferSize is 0.
 * @retval VX_INVALID_SR_ID  NodeID is no node.
 */
VX_API VX_STATUS VX_SR_Get_Location(int32_t NodeID, uint32_t BufferSize, char* Location);

/**
 * Takes a node and all below it out of the tree, and its item out of the parent's (0040,A730).
 * The item with all that it holds stays, and is the caller's to free with VX_Free_Item. The next call of
 * VX_SR_Get_Next_Child for the parent gives the left sibling again, or the right one of a first child.
 * @param NodeID  node other than the root.
 * @retval VX_INVALID_SR_ID  NodeID is no node.
 * @retval VX_INVALID_MESSAGE_ID  it is the root.
 */
VX_API VX_STATUS VX_SR_Delete_Child(int32_t NodeID);

/**
 * Drops the tree that a node belongs to; the message and its items stay as they are.
 * @param RootID  any node of the tree.
 * @retval VX_INVALID_SR_ID  RootID is no node.
 */
VX_API VX_STATUS VX_SR_To_Message(int32_t RootID);

/**
 * Makes a message the root of a new tree, with nodes for the items that it holds.
 * Items that belong to another tree end the row of their siblings.
 * @param MsgID  message that is part of no tree, such as one that was read; the root's id, too.
 * @retval VX_INVALID_MESSAGE_ID  MsgID is no message, or part of a tree already.
 */
VX_API VX_STATUS VX_Message_To_SR(int32_t MsgID);

/**
 * Drops a tree and frees its message with all items.
 * @param RootID  root of the tree, dead after the call.
 * @retval VX_INVALID_SR_ID  RootID is not the root of a tree.
 */
VX_API VX_STATUS VX_SRH_Free_SR(int32_t RootID);

#ifdef __cplusplus
}
#endif

#endif
