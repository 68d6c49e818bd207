/* SPDX-License-Identifier: MIT */
/**
 * @file netlink.h
 * Questions to the kernel's routing netlink: the IPv6 default gateway of an
 * interface, and the wait for its global IPv6 address.
 *
 * Messages and attributes are those of rtnetlink(7), in the records of
 * <linux/netlink.h> and <linux/rtnetlink.h>. Each query opens what it needs and
 * closes it before it returns; no state survives a call. Nothing of it is
 * inherited by the commands of other threads. Texts are NUL-terminated and
 * belong to the caller. A signal handler of the host makes no query fail or end; it
 * may cut short the second for which the wait reads on after a notification.
 *
 * Failures are logged at level 3 and progress at level 0, under the names of the
 * query and of its steps, vexa_rtnl_receive, vexa_rtnl_recvmsg,
 * vexa_get_route_dump_response, vexa_epoll_event_handle and
 * vexa_nl_netlink_handle.
 */
#ifndef VEXADM_NETLINK_H
#define VEXADM_NETLINK_H

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include "export.h"

VEXA_BEGIN_DECLS

/* ---- Queries ------------------------------------------------------------- */

/**
 * Asks the kernel for its IPv6 routes and takes the first one with a gateway
 * through an interface; destination, table and metric are not looked at.
 *
 * @param ifname  name of the interface; an unknown one has no gateway
 * @param gw_out  at least 46 bytes (INET6_ADDRSTRLEN); receives the gateway as
 *                text, or an empty text when none was found. That is also the
 *                answer where the kernel's reply could not be read. Untouched by -1
 * @retval 0  asked; look at gw_out
 * @retval -1 not asked: "couldn't open NETLINK_ROUTE socket:%d\n" (errno),
 *            "couldn't bind:%d\n" (errno), "Failed to perfom request\n"; or ifname or
 *            gw_out is NULL (nothing logged)
 * @note Reads one datagram of the reply, a few kilobytes: with hundreds of routes
 *       the gateway may be in one that is not read. A route to several next hops
 *       has no gateway of its own and is not taken.
 * @note Blocks until the kernel replies, which is at once. But when a message of
 *       another process reaches the socket before the reply (this takes
 *       CAP_NET_ADMIN), the call never returns: it sleeps, whatever the message says,
 *       and logs nothing about it. Thread-safe.
 * @note The kernel chooses the socket's port, in most cases the process id: a
 *       vexa_check_global_ipv6_addr() that begins meanwhile is refused.
 * @note Logs further, at level 3: "Can't receive from socket:%d\n" (errno), "EOF in
 *       the link\n", "oem_MALLOC failed\n", "Dump was interrupted\n" (the routes
 *       changed meanwhile), "netlink reported error\n"; at level 0: "Dump IPv6
 *       default gateway:%d\n" (bytes received, or the negative code of their
 *       receiving); and what vexa_dump_route() logs of each message. That finds
 *       the end of a short reply too short for a route: "Wrong message
 *       length:20:-8:28\n".
 */
VEXA_API int32_t vexa_get_ipv6_default_gw(const char *ifname, char *gw_out);

/**
 * Waits until the kernel tells of a global IPv6 address of an interface. One
 * that is there already is not told of.
 *
 * @param ifname    name of the interface
 * @param addr_out  at least 40 bytes. Receives each address of the interface that
 *                  is told of, in eight groups of four lower-case digits, such as
 *                  2001:0db8:0000:0000:0000:0000:0000:0001; one that does not
 *                  begin with fe80 is global and ends the wait
 * @retval 0  the wait came to its end. Found, when addr_out begins with a global
 *            prefix; otherwise two seconds went by without a notification
 *            ("Timeout to wait for IPv6 event\n", level 3), and addr_out holds the
 *            last link-local address told of, or what it held before
 * @retval 1  not waited: "if_nametoindex failed:%s\n" (ifname; "(null)" for NULL),
 *            "epoll create failure:%d\n" (errno), "couldn't open NETLINK_ROUTE
 *            socket:%d\n" (errno), "couldn't bind:%d\n" (errno), "epoll add sock_fd
 *            error\n"; or addr_out is NULL (nothing logged)
 * @note Blocks for at least two seconds without any notification. Each one, also of
 *       other interfaces, starts these anew and takes a second more to be read, so
 *       that there is no upper bound.
 * @note One wait at a time in a process: its netlink port is the process id, and a
 *       second one fails ("couldn't bind:98\n"). The same happens while any other
 *       netlink socket of the process has that port. The kernel gives it to the first
 *       one that asks for none, which may be another library's, or that of
 *       vexa_get_ipv6_default_gw() in another thread. Then call again: that one has
 *       its port for a moment only.
 * @note Logs further, at level 0: "Process fd count:%d\n", "rx len:%d \n" for each
 *       datagram, "Return IPv6 addr:%s scope:%d\n" (addr_out, the scope of
 *       rtnetlink), "Get IPv6 address\n". Of a datagram, what follows the message of
 *       another interface is not looked at.
 */
VEXA_API int32_t vexa_check_global_ipv6_addr(const char *ifname, char *addr_out);

/* ---- Messages ------------------------------------------------------------ */

/**
 * Takes the gateway out of a route.
 *
 * @param msg     a whole message of nlmsg_len bytes with an rtmsg; its type is not
 *                looked at
 * @param ifname  name of the interface that the route has to lead through. A route
 *                without an interface (RTA_OIF) fits each one
 * @param gw_out  at least 46 bytes; receives the gateway as text. Untouched by -1
 * @retval 0  an IPv6 route with a gateway (logged: "IPv6 gateway via %s\n", level 0)
 * @retval -1 another route; or msg is too short for one ("Wrong message
 *            length:%d:%d:%ld\n": its length, what is left behind the headers, the
 *            length of the headers, which is 28); or there is no interface of that
 *            name ("Can't map iface name(%s) to index\n", ifname, "(null)" for NULL); or
 *            msg or gw_out is NULL (nothing logged)
 * @note An attribute that is too short for its value counts as absent. Does not
 *       block; thread-safe.
 */
VEXA_API int32_t vexa_dump_route(const struct nlmsghdr *msg, const char *ifname, char *gw_out);

/**
 * Sorts attributes by their type.
 *
 * @param table  max + 1 places; each receives a pointer to the last attribute of
 *               its type, or NULL. A NULL table is left alone
 * @param max    largest type of interest; others are skipped. A negative one has no
 *               places
 * @param first  attributes in the layout of rtnetlink, len bytes; NULL for none
 * @param len    their bytes. An attribute whose length is below 4 or beyond len ends
 *               the walk
 * @note Touches nothing but table. Thread-safe. Logs nothing.
 */
VEXA_API void vexa_parse_rtattr(struct rtattr *table[], int32_t max, struct rtattr *first, int32_t len);

VEXA_END_DECLS

#endif
