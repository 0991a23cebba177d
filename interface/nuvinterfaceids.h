// SPDX-License-Identifier: Apache-2.0
#ifndef NUVINTERFACEIDS_H
#define NUVINTERFACEIDS_H

// The organisation prefix of every plugin interface identifier. Hosts and
// transports compare identifiers as plain strings, so both identifiers are
// derived from this one prefix and must never be spelled out elsewhere.
#define NUV_IID_PREFIX "org.nuvclassify"

#define NUV_CLASSIFY_INTERFACE_IID NUV_IID_PREFIX ".ClassifyInterface/1.2"
#define NUV_MQCLIENT_INTERFACE_IID NUV_IID_PREFIX ".kesp.nuvMQClientInterface/1.2"

#endif // NUVINTERFACEIDS_H
