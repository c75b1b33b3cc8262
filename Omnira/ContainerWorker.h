#pragma once
// The container engines' own thread ("Omnira containers"). Asking an engine blocks for up
// to its time-out, so it never happens on the sampling thread or the main thread: the
// worker owns the container sampler, touches it only on its thread, and sends back each
// finished snapshot by a queued signal. Requests are answered in order, one at a time;
// the store sends the next only after the last one came back.
//
// The store creates the worker on the main thread and moves it to its thread; call
// sample() from the main thread only, through a queued invocation.

#include <QObject>

#include <functional>
#include <memory>

#include "OmniraCore/containers/ContainerSampler.h"

namespace omnira {

class ContainerWorker : public QObject {
  Q_OBJECT

 public:
  using MakeSampler = std::function<std::unique_ptr<ContainerSampler>()>;
  explicit ContainerWorker(MakeSampler make);
  ~ContainerWorker() override;

 public slots:
  void sample(bool withStats);

 signals:
  void sampled(const omnira::ContainerSnapshot& snapshot);

 private:
  MakeSampler make_;
  std::unique_ptr<ContainerSampler> sampler_;
};

}  // namespace omnira

Q_DECLARE_METATYPE(omnira::ContainerSnapshot)
