// Limits failed logins by two counters: one for each address, against trying many accounts from one
// place, and one for each account, against trying one account from many places. Addresses from
// which the owner has logged in before are exempt from the second, so a stranger cannot lock the
// owner out.

import { RateLimiterMemory } from 'rate-limiter-flexible';
import { clientNetwork } from './address.js';
import { ServiceError, must } from './errors.js';

const windowSeconds = 600;
const rememberedSeconds = 20 * 86_400; // Node's timers are limited to 24 days

export class LoginThrottle {
  #byAddress;
  #byAccount;
  #known = new RateLimiterMemory({ keyPrefix: 'known', points: 1, duration: rememberedSeconds });

  /**
   * An address may fail `failures` times in ten minutes, and so may an account; 0 means no limit.
   */
  constructor(failures) {
    if (failures === 0) return;
    this.#byAddress =
      new RateLimiterMemory({ keyPrefix: 'address', points: failures, duration: windowSeconds });
    this.#byAccount =
      new RateLimiterMemory({ keyPrefix: 'account', points: failures, duration: windowSeconds });
  }

  /**
   * Returns what `identify(account)` resolves to. `identify` awaits `account(name)` after it has
   * checked the signature and before it checks a password, so nobody without a key can use up an
   * account's attempts. Throws "tooMany" after too many failures.
   */
  async attempt(address, identify) {
    if (!this.#byAddress) return identify(() => {});
    const network = clientNetwork(address);
    let name;
    let isKnown = false;
    // Counted before the password is checked, so a hundred attempts at the same time count as a
    // hundred.
    await this.#take(this.#byAddress, network);
    let isRefused = false;
    try {
      const person = await identify(async (account) => {
        isKnown = (await this.#known.get(`${account} ${network}`)) !== null;
        if (!isKnown) await this.#take(this.#byAccount, account);
        name = account;
      });
      if (name !== undefined) await this.#known.set(`${name} ${network}`, 1, rememberedSeconds);
      return person;
    } catch (error) {
      isRefused = error instanceof ServiceError;
      throw error;
    } finally {
      // a success does not count, and neither does a failure of our own
      if (!isRefused) {
        await this.#byAddress.reward(network);
        if (name !== undefined && !isKnown) await this.#byAccount.reward(name);
      }
    }
  }

  async #take(limiter, key) {
    const left = await limiter.consume(key).catch(() => undefined);
    must(left, 'tooMany');
  }
}
