#include <ole/misc/Array.h>

#include <algorithm>

ArrayRec::~ArrayRec() = default;

Array::Array(const Array& other) {
    records_.reserve(other.records_.size());
    for (const std::unique_ptr<ArrayRec>& record : other.records_) records_.emplace_back(record->clone());
}

Array& Array::operator=(const Array& other) {
    if (this != &other) {
        Array copy(other);
        records_.swap(copy.records_);
    }
    return *this;
}

Array::~Array() = default;

std::size_t Array::lowerBound(const ArrayRec& key) const {
    const auto at = std::lower_bound(
        records_.begin(), records_.end(), &key,
        [](const std::unique_ptr<ArrayRec>& held, const ArrayRec* k) { return held->compare(*k) < 0; });
    return std::size_t(at - records_.begin());
}

ArrayRec* Array::intern(std::unique_ptr<ArrayRec> record) {
    if (!record) return nullptr;
    const std::size_t at = lowerBound(*record);
    if (at < records_.size() && records_[at]->compare(*record) == 0) return records_[at].get();
    return records_.insert(records_.begin() + std::ptrdiff_t(at), std::move(record))->get();
}

const ArrayRec* Array::find(const ArrayRec& key) const {
    const std::size_t at = lowerBound(key);
    return at < records_.size() && records_[at]->compare(key) == 0 ? records_[at].get() : nullptr;
}

bool Array::remove(const ArrayRec& key) {
    const std::size_t at = lowerBound(key);
    if (at >= records_.size() || records_[at]->compare(key) != 0) return false;
    records_.erase(records_.begin() + std::ptrdiff_t(at));
    return true;
}
