// How often a login may fail. Two counts: of an address, against many accounts tried from one place; and of an account, against one
// account tried from many places. An address from which the account's owner has logged in before is exempt from the second, so
// that a stranger cannot lock the owner out.

import { RateLimiterMemory } from 'rate-limiter-flexible';
import { clientNetwork } from './address.js';
import { ServiceError, must } from './errors.js';

const windowSeconds = 600;
const rememberedSeconds = 20 * 86_400; // a timer of Node holds no more than 24 days

export class LoginThrottle {
  #byAddress;
  #byAccount;
  #known = new RateLimiterMemory({ keyPrefix: 'known', points: 1, duration: rememberedSeconds });

  /** `failures` of an address are allowed in ten minutes, and as many of an account; 0 is no limit. */
  constructor(failures) {
    if (failures === 0) return;
    this.#byAddress = new RateLimiterMemory({ keyPrefix: 'address', points: failures, duration: windowSeconds });
    this.#byAccount = new RateLimiterMemory({ keyPrefix: 'account', points: failures, duration: windowSeconds });
  }

  /**
   * What `identify(account)` resolves to; it awaits `account(name)` before it looks at a password, once the signature has proved to be
   * good: who has no key cannot use an account's count up. Throws "tooMany" when there were too many failures.
   */
  async attempt(address, identify) {
    if (!this.#byAddress) return identify(() => {});
    const network = clientNetwork(address);
    let name;
    let isKnown = false;
    // Counted before the password is looked at, so that a hundred attempts at once are a hundred attempts.
    await this.#take(this.#byAddress, network);
    try {
      const person = await identify(async (account) => {
        isKnown = (await this.#known.get(`${account} ${network}`)) !== null;
        if (!isKnown) await this.#take(this.#byAccount, account);
        name = account;
      });
      await this.#byAddress.reward(network);
      if (name !== undefined && !isKnown) await this.#byAccount.reward(name);
      if (name !== undefined) await this.#known.set(`${name} ${network}`, 1, rememberedSeconds);
      return person;
    } catch (error) {
      if (!(error instanceof ServiceError)) await this.#byAddress.reward(network); // our own failure is not the client's
      throw error;
    }
  }

  async #take(limiter, key) {
    const left = await limiter.consume(key).catch(() => undefined);
    must(left, 'tooMany');
  }
}
