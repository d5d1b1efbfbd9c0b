#pragma once

#include <QtTest>

#include "rkservice/COrinQuoterSourceInfo.h"

// Compares every field of two quote sources, the sub-system tag included (a failure ends the
// calling test's check here; QTest records it).
inline void compareSources(const rkservice::COrinQuoterSourceInfo& a,
                           const rkservice::COrinQuoterSourceInfo& b) {
    QCOMPARE(a.m_nId, b.m_nId);
    QCOMPARE(a.m_nPlatformId, b.m_nPlatformId);
    QCOMPARE(a.m_nBrokerId, b.m_nBrokerId);
    QCOMPARE(a.m_nServerGroupId, b.m_nServerGroupId);
    QCOMPARE(a.m_strAddress, b.m_strAddress);
    QCOMPARE(a.m_nPort, b.m_nPort);
    QCOMPARE(a.m_strUserName, b.m_strUserName);
    QCOMPARE(a.m_strPassword, b.m_strPassword);
    QCOMPARE(a.m_nTradeType, b.m_nTradeType);
    QCOMPARE(a.m_strMarkets, b.m_strMarkets);
    QCOMPARE(a.getSystemTag(), b.getSystemTag());
}
