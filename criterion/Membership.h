#pragma once

#include <cstddef>

namespace quorel::criterion {

// The degree of membership as the generated script computes it: the script's statements in the
// same order with the same double arithmetic, on the parameters as the script prints them
// (15 significant digits), so that degrees agree bit for bit with those the calculator stores.
// A degree the script leaves Empty (kind 0) is NaN. The script's division by zero throws
// quorel::Error 11 "Division by zero", and a result beyond the double range Error 6 "Overflow",
// for every value, as the calculator's run would.
class MembershipFunction {
public:
    MembershipFunction(int kind, double a, double b, double c, double d);

    double operator()(double x) const;
    // The degree stored for a Null value: comparisons with Null are false, so only the
    // singleton's Else branch assigns (1); the others stay Null (NaN).
    double OfNull() const;
    // out[i] = degree of x[i]; out may be x.
    void Evaluate(const double* x, double* out, std::size_t count) const;

    // Parameters as the script's literals hold them.
    double A() const { return m_a; }
    double B() const { return m_b; }
    double C() const { return m_c; }
    double D() const { return m_d; }

private:
    int m_kind;
    double m_a, m_b, m_c, m_d;
    double m_rateA = 0, m_rateB = 0; // the script's A and B
    double m_facA = 0, m_facB = 0;   // its Fac for the rising and the falling ramp
};

// One degree; see MembershipFunction.
double Membership(int kind, double x, double a, double b, double c, double d);

// The value a double takes after printing with 15 significant digits and reading back, as a
// parameter does on its way through the script's text.
double AsScriptLiteral(double value);

} // namespace quorel::criterion
