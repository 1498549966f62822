#include <QVPlatform/NetworkInfo.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

namespace {

QVNetworkInfo MakeInfo(const qvstring& canonical, const std::list<qvstring>& names) {
    QVNetworkInfo info;
    info.SetCanonicalHostName(canonical);
    for (const qvstring& name : names)
        info.AddHostName(name);
    return info;
}

} // namespace

TEST(NetworkInfo, OneHostIsTheSameByItsNamesInAnyOrderAndCase) {
    const QVNetworkInfo info = MakeInfo("srv.plant", {"srv.plant", "srv", "S\xC3\x84"});
    const struct {
        const char* canonical;
        std::list<qvstring> names;
        bool bSame;
    } rows[] = {
        {"srv.plant", {"srv.plant", "srv", "S\xC3\x84"}, true},
        {"SRV.Plant", {"SRV", "s\xC3\x84", "srv.PLANT", "srv"}, true},
        {"srv", {"srv.plant", "srv", "S\xC3\x84"}, false},
        {"srv.plant", {"srv.plant", "srv"}, false},
        {"srv.plant", {"srv.plant", "srv", "S\xC3\x84", "other"}, false},
        {"srv.plant", {"srv.plant", "srv", "s\xC3\xA4"}, false},
        {"", {}, false},
    };
    for (const auto& row : rows) {
        const QVNetworkInfo other = MakeInfo(row.canonical, row.names);
        EXPECT_EQ(info.IsSameNetworkInfoAs(other), row.bSame) << row.canonical;
        EXPECT_EQ(other.IsSameNetworkInfoAs(info), row.bSame) << row.canonical;
    }
    EXPECT_TRUE(QVNetworkInfo().IsSameNetworkInfoAs(QVNetworkInfo()));
}

TEST(NetworkInfo, ThisMachineHasTheNameThatItWasGiven) {
    std::ifstream file("/proc/sys/kernel/hostname");
    qvstring name;
    std::getline(file, name);
    const QVNetworkInfo info = QVNetworkInfo::OfThisMachine();
    EXPECT_EQ(info.GetCanonicalHostName(), name);
    EXPECT_TRUE(info.HasHostName(name));
    EXPECT_TRUE(info.HasHostName(name.substr(0, name.find('.'))));
    EXPECT_THAT(info.GetAddresses(), testing::Not(testing::Contains("127.0.0.1")));
    EXPECT_TRUE(info.IsSameNetworkInfoAs(QVNetworkInfo::OfThisMachine()));
}
