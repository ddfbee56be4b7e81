#pragma once

#include <QFuture>
#include <QPromise>

// A future that already holds `value`, for asynchronous operations that can answer at once
// (a bad address, an empty list). QtFuture::makeReadyFuture would split a list into
// separate results, so it does not serve.
template <typename T>
QFuture<T> readyFuture(T value)
{
    QPromise<T> promise;
    promise.start();
    promise.addResult(std::move(value));
    promise.finish();
    return promise.future();
}
