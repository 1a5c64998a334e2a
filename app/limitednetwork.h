#pragma once

#include <QQmlNetworkAccessManagerFactory>

/// The network of the view: the answer to a request ends in an error once it is longer than 1 MB, or after 30
/// s, whatever a server sends. What a server redirects to is a request of its own. A calibration has less
/// than a thousand bytes.
class LimitedNetwork : public QQmlNetworkAccessManagerFactory
{
public:
    explicit LimitedNetwork(int limitMs = defaultLimitMs)
        : limitMs_(limitMs)
    {
    }
    QNetworkAccessManager *create(QObject *parent) override;

private:
    static constexpr int defaultLimitMs = 30000;
    int limitMs_;
};
