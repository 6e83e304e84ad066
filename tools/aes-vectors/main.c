/* rmcpp-aes-vectors: writes the FIPS-197 example file, the four known-answer
 * files and the four Monte Carlo files into the current directory. The
 * tables test reads table.128, table.192 and table.256 from there too. */
#include "rmcpp_aes.h"

int main(void)
{
    makeFIPSTestVectors("fips-test-vectors.txt");
    makeKATs("ecb_vk.txt", "ecb_vt.txt", "ecb_tbl.txt", "ecb_iv.txt");
    makeMCTs("ecb_e_m.txt", "ecb_d_m.txt", "cbc_e_m.txt", "cbc_d_m.txt");
    return 0;
}
