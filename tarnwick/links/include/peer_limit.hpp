// SPDX-License-Identifier: MIT
// Limits on the peers of the daemon's two endpoints, tcp port 5160 and the reply socket.
// ZeroMQ limits neither the number of peers nor their subscriptions, and when there is not a
// descriptor for a new peer it ends the process. So descriptors are divided, here for a
// limit of 1,024:
//
//   descriptor   0 ......... 831 | 832 ... 959 | 960 ... 991     | 992 ... 1,023
//   used by      the daemon and  | clients     | connections     | the daemon
//                subscribers     |             | being closed    |
//
// A subscriber whose descriptor is above the first part is refused, a client above the third.
// When as many clients are connected as the second part has places, the process with the most
// of them loses its oldest connection. The system always gives the lowest free descriptor, so
// its number shows how many are open.
#pragma once

// Raises the limit of descriptors to the most that the system allows. Main thread, before
// anything is opened.
void raiseDescriptorLimit();

// Logs how many peers were refused since the last time, one warning for each kind, at most
// once a minute. Radio thread, at each tick.
void tellRefusedPeers();

// Call it when the publisher has read the messages of its subscribers: the messages that they
// may send until the next call are counted from 0 again. Any thread.
void subscriptionsTaken();
