#include "Omnira/ContainerWorker.h"

namespace omnira {

ContainerWorker::ContainerWorker(MakeSampler make) : make_(std::move(make)) {
  qRegisterMetaType<omnira::ContainerSnapshot>();
}

ContainerWorker::~ContainerWorker() = default;

void ContainerWorker::sample(bool withStats) {
  if (!sampler_) sampler_ = make_();
  emit sampled(sampler_->sample(withStats));
}

}  // namespace omnira
