// Sets of age classes: one class per year of age, or classes between a list of bounds.
#pragma once
#include <cstdint>
#include <vector>

class Altersklasse {
public:
    // whether value lies in a class, and which one
    virtual bool find(int32_t value, int& index) const = 0;
    virtual int count() const = 0;
    virtual int32_t lower(int i) const = 0;
    virtual int32_t upper(int i) const = 0;
    virtual ~Altersklasse() = default;
};

// one class per integer from lower to upper; with clip a value above upper counts as upper
class DichtAltersklasse : public Altersklasse {
public:
    DichtAltersklasse(int32_t lower, int32_t upper, bool clip) : low(lower), high(upper), clip(clip) {}
    bool find(int32_t value, int& index) const override;
    int count() const override { return high - low + 1; }
    int32_t lower(int i) const override { return low + i; }
    int32_t upper(int i) const override { return low + i; }

private:
    int32_t low, high;
    bool clip;
};

// class i covers bounds[i] to bounds[i+1]-1
class LueckAltersklasse : public Altersklasse {
public:
    explicit LueckAltersklasse(std::vector<int32_t> bounds) : bounds(std::move(bounds)) {}
    bool find(int32_t value, int& index) const override;
    int count() const override { return static_cast<int>(bounds.size()) - 1; }
    int32_t lower(int i) const override { return bounds[i]; }
    int32_t upper(int i) const override { return bounds[i + 1] - 1; }
    // the bounds may be set before any use (the household tool's age limits)
    void setBound(int i, int32_t value) { bounds[i] = value; }

private:
    std::vector<int32_t> bounds;
};
