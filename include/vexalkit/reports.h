/** @file
 * Structured reports: the tree of nodes. The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_REPORTS_H
#define VEXALKIT_REPORTS_H

#include "base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Structured reports: the tree (PS3.3 section C.17.3) ----------------------------------------------- */

/**
 * A report is a message whose content lies in nested items of (0040,A730). Beside it stands a tree of nodes,
 * one for the message (the root) and one for each item; a node has the id of its message or item. All content
 * stays in the attributes. While an object is part of a tree, it is none for calls that ask for a message or
 * an item by kind; VX_SR_To_Message gives the message back, for example to write it.
 *
 * VX_INVALID_SR_ID: the id is no node. Threads may use one tree; those that walk the children of one node
 * share its cursor.
 */

/**
 * Makes a message the root of a new tree; RootID is MsgID. VX_INVALID_MESSAGE_ID: no message, or part of a
 * tree already.
 */
VX_API VX_STATUS VX_SR_Add_Root(int32_t MsgID, int32_t* RootID);

/**
 * Adds an item as the last child, and as the last item of the parent's (0040,A730). VX_INVALID_SR_ID,
 * VX_INVALID_ITEM_ID: no item, or part of a tree already; else what setting the sequence gives.
 */
VX_API VX_STATUS VX_SR_Add_Child(int32_t ParentID, int32_t ChildID);

/**
 * The root of a node's tree. The walk over the root's children starts over. VX_INVALID_SR_ID.
 */
VX_API VX_STATUS VX_SR_Get_Root(int32_t NodeID, int32_t* RootID);

/**
 * The first child, from which VX_SR_Get_Next_Child goes on. A node without children gives ChildID 0 and
 * IsLast 1, and VX_NORMAL_COMPLETION. VX_INVALID_SR_ID.
 */
VX_API VX_STATUS VX_SR_Get_First_Child(int32_t NodeID, int32_t* ChildID, int32_t* IsLast);

/**
 * The next child; at the end ChildID is 0 and IsLast 1, with VX_NORMAL_COMPLETION. VX_INVALID_MESSAGE_ID: no
 * node.
 */
VX_API VX_STATUS VX_SR_Get_Next_Child(int32_t NodeID, int32_t* ChildID, int32_t* IsLast);

/**
 * The number of children. VX_UNABLE_TO_GET_SR_ID: no node; VX_INVALID_SR_ID: a node that could not be linked.
 */
VX_API VX_STATUS VX_SR_Get_Child_Count(int32_t NodeID, int32_t* Count);

/**
 * The place of a node, such as "1.2.1": the root is "1". It changes when a left sibling goes. Cut to
 * BufferSize, which needs no more than 81 bytes; empty for a place that takes more than 80 characters.
 * VX_INVALID_SR_ID.
 */
VX_API VX_STATUS VX_SR_Get_Location(int32_t NodeID, uint32_t BufferSize, char* Location);

/**
 * Takes a node and all below it out of the tree, and its item out of the parent's (0040,A730). The item with
 * all that it holds stays, and is the caller's to free with VX_Free_Item. VX_INVALID_SR_ID;
 * VX_INVALID_MESSAGE_ID: the root.
 */
VX_API VX_STATUS VX_SR_Delete_Child(int32_t NodeID);

/**
 * Drops the tree that a node belongs to. The message and its items stay as they are. VX_INVALID_SR_ID.
 */
VX_API VX_STATUS VX_SR_To_Message(int32_t RootID);

/**
 * Builds the tree of a message with content, such as one that was read. Items that belong to another tree end
 * the row of their siblings. VX_INVALID_MESSAGE_ID.
 */
VX_API VX_STATUS VX_Message_To_SR(int32_t MsgID);

/**
 * Drops a tree and frees its message with all items. VX_INVALID_SR_ID: not the root of a tree.
 */
VX_API VX_STATUS VX_SRH_Free_SR(int32_t RootID);

#ifdef __cplusplus
}
#endif

#endif
